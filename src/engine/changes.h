// Changes, gathered: a job that moves on a thousand times a second is one change when it is looked at.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "base/guid.h"
#include "store/store_changes.h"

namespace vantlow {

/// The parts of a job that change, as bits: those of StoreChange, and whether the job exists at all.
namespace job_field {
inline constexpr std::uint32_t progress =
    StoreChange::positions;  ///< bytes, size; of a running job connections
inline constexpr std::uint32_t place = StoreChange::place;
inline constexpr std::uint32_t state = StoreChange::state;
inline constexpr std::uint32_t order = StoreChange::order;
inline constexpr std::uint32_t category = StoreChange::category;
inline constexpr std::uint32_t options = StoreChange::options;
inline constexpr std::uint32_t added = 1U << 30U;
inline constexpr std::uint32_t removed = 1U << 31U;
}  // namespace job_field

/// One job's changes since somebody looked.
struct JobChange {
    Guid job;
    std::uint32_t fields = 0;  ///< of job_field
    std::uint64_t revision = 0;
};

/// The changes since a revision.
struct Changes {
    std::uint64_t revision = 0;  ///< to ask from next time
    bool everything = false;     ///< too long ago: the list must be read anew
    bool categories = false;
    bool settings = false;
    bool questions = false;
    std::vector<JobChange> jobs;  ///< by revision, each job once

    [[nodiscard]] bool empty() const noexcept {
        return jobs.empty() && !everything && !categories && !settings && !questions;
    }
};

/// Counts changes by revisions and tells what changed since any of them. One thread.
class ChangeLog {
  public:
    /// Remembers this many changed jobs; a client that asks from before the oldest of them gets `everything`.
    explicit ChangeLog(std::size_t most_kept = 20000) : most_kept_(most_kept) {}

    void job(const Guid& job, std::uint32_t fields);
    /// States that so much changed that the jobs must be read anew.
    void everything() { forgotten_ = ++revision_; }
    void categories() { categories_ = ++revision_; }
    void settings() { settings_ = ++revision_; }
    void questions() { questions_ = ++revision_; }
    [[nodiscard]] std::uint64_t revision() const noexcept { return revision_; }
    [[nodiscard]] bool has_news() const noexcept { return revision_ != delivered_; }

    /// All changes after `revision`; a job's fields are the ones that changed since then, or more.
    [[nodiscard]] Changes since(std::uint64_t revision) const;
    /// Returns the changes since the last call, and begins a new gathering.
    Changes deliver();

  private:
    struct Entry {
        std::uint64_t revision = 0;
        std::uint64_t added = 0;        ///< revision at which it was added; 0: before it was first noted
        std::uint32_t fields = 0;       ///< since it was first noted
        std::uint32_t undelivered = 0;  ///< since the last deliver()
    };

    const std::size_t most_kept_;
    std::uint64_t revision_ = 0;
    std::uint64_t delivered_ = 0;
    std::uint64_t forgotten_ = 0;  ///< the newest revision of a job that is not remembered any more
    std::uint64_t categories_ = 0;
    std::uint64_t settings_ = 0;
    std::uint64_t questions_ = 0;
    std::unordered_map<Guid, Entry, GuidHash> jobs_;
    std::map<std::uint64_t, Guid> by_revision_;
};

}  // namespace vantlow
