// The file of a job on this machine: its names, its bytes, its end.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/log.h"
#include "base/mutex.h"
#include "base/result.h"
#include "base/safe_name.h"
#include "platform/conduit.h"
#include "platform/file.h"
#include "platform/file_marks.h"
#include "storage/write_behind.h"

namespace vantlow {

/// The settings that a file is begun with.
struct FileRules {
    std::int64_t overwrite = 0;  ///< 0 rename, 2 overwrite, anything else cancel
    /// Before that rule: a file of this name (or of "name(N)") that has the server's size and is no older
    /// than the server's is not fetched again. Where the server tells neither, any file of the name is that.
    bool skip_existing = false;
    std::int64_t server_size = -1;            ///< bytes; -1: unsaid
    std::optional<std::int64_t> server_time;  ///< of the last change, seconds since 1970
    bool allocate = false;                    ///< give the file its full size before data is written
    std::size_t disk_buffer = 256 * 1024;     ///< bytes of the write-behind buffer
    std::size_t data_buffer =
        512 * 1024;  ///< bytes that a connection gathers: where these are fewer, writes are gathered again
};

/// A job's local file. Bytes go into a partial file beside the target, which takes the target's name when
/// everything is written: the target never shows an unfinished file. Writes and reads may come from several
/// threads at once, all else from one at a time while nobody writes.
class CLocalFile {
  public:
    /// `listener` hears of the bytes that were handed to the system; it outlives the file.
    CLocalFile(LogSink& log, WrittenListener& listener) : log_(log), listener_(listener) {}

    /// Begins a new file: applies the overwrite rule to folder/name, chooses the names and opens the partial
    /// file for this process alone. A partial file that nobody uses and that has no state is an abandoned one
    /// and is used again; another job's makes this one take another name. The folder is made where it is
    /// missing. `cancelled` by the rule, and where the file is there already: is_skipped(); `local_file`.
    Result begin(const std::u16string& folder, const std::u16string& name, const FileRules& rules);
    /// Opens the partial file of an earlier run, all of whose first `needed` bytes must be there.
    /// `local_file` when it is gone, too short or in use.
    Result resume(const std::u16string& target, std::int64_t needed, const FileRules& rules);

    /// Extends the file to its full size where the rules say so: `local_file` when there is no room.
    Result allocate(std::int64_t size);
    /// Hands bytes to the system, at once or with the next ones; the listener hears when it happened.
    Result write(std::int64_t offset, std::span<const std::byte> bytes);
    /// Whether the conduit's bytes may be written straight from it: nothing gathers writes here.
    [[nodiscard]] bool takes_conduits() const noexcept { return behind_ == nullptr; }
    /// Hands the conduit's oldest bytes to the system; the listener hears of it.
    Result write(std::int64_t offset, Conduit& from, std::size_t bytes);
    /// Writes what is held back.
    Result drain();
    /// Reads bytes that were written.
    Result read(std::int64_t offset, std::span<std::byte> into);
    /// Returns when everything written is on the disk.
    Result flush();
    /// Cuts the file off behind its first `size` bytes, to give the disk some room.
    Result shrink(std::int64_t size);
    /// Throws everything away: the file is empty again.
    Result start_over();
    /// The finished file is `size` bytes long, safe on the disk, and takes its name. With a suffix it takes
    /// its name with that behind it. When somebody else took the name meanwhile the overwrite rule is applied
    /// again. With an origin the file is marked with it before; that this failed is only logged.
    /// `before_name` is called with each name before it is tried.
    Result finish(std::int64_t size, std::u16string_view suffix = {},
                  const std::optional<FileOrigin>& origin = std::nullopt,
                  const std::function<void(const std::u16string&)>& before_name = {});
    /// Closes and removes the partial file.
    void discard();
    void close();

    [[nodiscard]] bool is_open() const noexcept { return file_.is_open(); }
    /// Bytes that the partial file has now; -1 where that is not known.
    [[nodiscard]] std::int64_t size() const noexcept { return file_.size(); }
    [[nodiscard]] const std::u16string& target() const noexcept { return target_; }
    [[nodiscard]] std::u16string partial_path() const { return target_ + std::u16string(partial_suffix); }
    [[nodiscard]] std::u16string state_path() const;
    /// begin() found the file that was to be fetched: target() names it.
    [[nodiscard]] bool is_skipped() const noexcept { return skipped_; }

  private:
    enum class Claim { mine, taken, failed };
    Claim claim_partial(FileError& error);
    bool find_existing(const std::u16string& folder, const std::u16string& name);
    Result choose_target(const std::u16string& folder, const std::u16string& name);
    FileError write_in_turn(std::int64_t offset, std::span<const std::byte> bytes);
    void mark(const FileOrigin& origin);
    Result failure(const FileError& error, const std::u16string& path);
    void set_up(const FileRules& rules);

    LogSink& log_;
    WrittenListener& listener_;
    FileRules rules_;
    std::u16string target_;
    bool skipped_ = false;
    File file_;
    Mutex turn_;                           ///< whose turn it is to write; guards no datum
    std::unique_ptr<WriteBehind> behind_;  ///< only where the connections gather less than the disk wants
};

}  // namespace vantlow
