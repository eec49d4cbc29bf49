#include "engine/changes.h"

#include <utility>

namespace vantlow {

void ChangeLog::job(const Guid& job, std::uint32_t fields) {
    Entry& entry = jobs_[job];
    if (entry.revision != 0) by_revision_.erase(entry.revision);
    entry.revision = ++revision_;
    if ((fields & job_field::added) != 0) entry.added = revision_;
    entry.fields |= fields;
    entry.undelivered |= fields;
    by_revision_.emplace(entry.revision, job);
    if (by_revision_.size() <= most_kept_) return;
    const auto oldest = by_revision_.begin();
    forgotten_ = oldest->first;
    jobs_.erase(oldest->second);
    by_revision_.erase(oldest);
}

Changes ChangeLog::since(std::uint64_t revision) const {
    Changes changes;
    changes.revision = revision_;
    changes.everything = revision < forgotten_ || revision > revision_;
    changes.categories = categories_ > revision;
    changes.settings = settings_ > revision;
    changes.questions = questions_ > revision;
    if (changes.everything) return changes;
    for (auto at = by_revision_.upper_bound(revision); at != by_revision_.end(); ++at) {
        const Entry& entry = jobs_.at(at->second);
        std::uint32_t fields = entry.fields;
        if (entry.added <= revision) fields &= ~job_field::added;
        changes.jobs.push_back({at->second, fields, entry.revision});
    }
    return changes;
}

Changes ChangeLog::deliver() {
    Changes changes = since(delivered_);
    if (changes.everything) {
        for (auto& [job, entry] : jobs_) entry.undelivered = 0;
    }
    for (JobChange& change : changes.jobs) change.fields = std::exchange(jobs_.at(change.job).undelivered, 0);
    delivered_ = revision_;
    return changes;
}

}  // namespace vantlow
