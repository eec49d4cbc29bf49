// Holds a file's pieces against their hashes while the rest is still fetched.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "platform/stop.h"
#include "platform/thread.h"
#include "storage/local_file.h"
#include "store/job_sources.h"

namespace vantlow {

/// Said where a metafile counts other pieces than the file has.
inline constexpr std::string_view pieces_do_not_fit =
    "The piece hashes do not fit the file's size and are not used.";

/// The digest of bytes of the file. Any thread; ends with the stop's reason when that comes.
Result digest_of_range(CLocalFile& file, DigestKind kind, std::int64_t begin, std::int64_t end,
                       const StopSource& stop, std::vector<std::byte>& digest);

/// Reads pieces back and hashes them on a thread of its own, which begins with the first piece, so that no
/// connection waits for a digest. What was just received is read from the system's cache, not from the disk.
/// Any thread may call, but for reset() and stop(), which whoever owns the object calls.
class PieceCheck {
  public:
    /// Hears the result of a piece: ok, `hash_differs`, or `local_file` when it could not be read. Called
    /// from the object's thread, without locks held.
    using Report = std::function<void(std::size_t piece, const Result& result)>;

    /// Everything outlives the object. `size` is the file's.
    PieceCheck(const PieceHashes& hashes, std::int64_t size, CLocalFile& file, ThreadPool& threads,
               const StopSource& stop, Report report);
    ~PieceCheck() { stop(); }
    PieceCheck(const PieceCheck&) = delete;
    PieceCheck& operator=(const PieceCheck&) = delete;

    /// Checks a piece, all of whose bytes were handed to the system.
    void add(std::size_t piece);
    /// Forgets what was not checked yet; nothing is read or reported any more when it returns.
    void reset();
    /// The same for good.
    void stop();
    /// True while a piece waits or is checked.
    [[nodiscard]] bool is_busy() const;

    /// Pieces begin at multiples of their length; the last one may be shorter.
    [[nodiscard]] std::int64_t begin_of(std::size_t piece) const noexcept {
        return static_cast<std::int64_t>(piece) * hashes_.length;
    }
    [[nodiscard]] std::int64_t end_of(std::size_t piece) const noexcept {
        return std::min(begin_of(piece) + hashes_.length, size_);
    }
    [[nodiscard]] std::size_t piece_at(std::int64_t offset) const noexcept {
        return static_cast<std::size_t>(offset / hashes_.length);
    }
    [[nodiscard]] std::size_t count() const noexcept { return hashes_.count(); }

  private:
    void run();
    Result check(std::size_t piece);

    const PieceHashes& hashes_;
    std::int64_t size_;
    CLocalFile& file_;
    ThreadPool& threads_;
    const StopSource& stop_;
    Report report_;
    mutable Mutex mutex_;
    StopCondition news_;
    std::deque<std::size_t> waiting_ VANTLOW_GUARDED_BY(mutex_);
    bool checking_ VANTLOW_GUARDED_BY(mutex_) = false;
    bool started_ VANTLOW_GUARDED_BY(mutex_) = false;
    bool ending_ VANTLOW_GUARDED_BY(mutex_) = false;
    ThreadPool::Running thread_;  ///< last
};

}  // namespace vantlow
