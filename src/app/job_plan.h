// What links and documents say of the jobs that they name, before there are jobs.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/job_sources.h"

namespace vantlow {

/// Who carries a job out.
enum class JobKind {
    transfer,  ///< the transfer engine: CJobQueue
    torrent,   ///< the BitTorrent network
    edonkey,   ///< the eDonkey network
};

/// The kind of an address that stands in a job: jobs keep no other mark of their kind.
JobKind job_kind(std::u16string_view address) noexcept;

/// One job that a link or a document asks for.
struct JobPlan {
    std::u16string address;  ///< of the kind that job_kind() tells
    std::u16string name;     ///< of the file, folders with "/" in front; not safe; empty: not known yet
    std::int64_t size = -1;  ///< bytes; -1: unsaid
    std::u16string comment;  ///< for the person; may be empty
    std::shared_ptr<const JobSources> sources;  ///< null: the address is all
};

/// What became of a link or a document.
struct JobPlans {
    std::vector<JobPlan> plans;
    std::string complaint;  ///< UTF-8: why there is nothing, or not everything; empty when all is well
};

}  // namespace vantlow
