// Magnet links as front ends know them: two downloads, of which the first fetches the torrent's description
// and the second the torrent. Here both are one job.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "base/guid.h"
#include "engine/engine.h"

namespace vantlow {

/// The identity of the first of the two, which is the same in every run: the job's own with its halves
/// exchanged. So the job is the `description_of` its description.
Guid description_of(const Guid& job) noexcept;

/// True for a magnet link's job until its torrent's description is known. Reads no document, asks no session.
bool awaits_description(const Engine& engine, const CJobNode& job);

/// The torrent whose description has the gid of these 16 digits; null where there is none. Reads the whole
/// list.
const CJobNode* torrent_of_description(const Engine& engine, std::string_view gid);

/// The jobs that are still shown as their descriptions. One thread.
class AwaitedDescriptions {
  public:
    void add(const Guid& job);
    void remove(const Guid& job);
    [[nodiscard]] bool contains(const Guid& job) const { return jobs_.contains(job); }
    /// The identity under which the job is shown: its own, unless its description is awaited.
    [[nodiscard]] Guid shown(const Guid& job) const { return contains(job) ? description_of(job) : job; }
    /// The job that is shown so; the same identity where it is no description that is awaited.
    [[nodiscard]] Guid behind(const Guid& shown) const {
        const Guid job = description_of(shown);
        return contains(job) ? job : shown;
    }
    /// The descriptions whose digits begin so: none, one, or two of several.
    [[nodiscard]] std::vector<Guid> find(std::string_view digits) const;

  private:
    std::unordered_set<Guid, GuidHash> jobs_;
    std::set<std::string, std::less<>> digits_;  ///< of their descriptions
};

}  // namespace vantlow
