// What links and documents say of the jobs that they name, before there are jobs.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/draft.h"
#include "store/job_sources.h"

namespace vantlow {

/// One job that a link or a document asks for.
struct JobPlan {
    std::u16string address;  ///< its scheme tells the kind
    std::u16string name;     ///< of the file, folders with "/" in front; not safe; empty: not known yet
    std::int64_t size = -1;  ///< bytes; -1: unsaid
    std::u16string comment;  ///< for the person; may be empty
    std::shared_ptr<const JobSources> sources;  ///< null: the address is all
};

/// What became of a link or a document.
struct JobPlans {
    std::vector<JobPlan> plans;
    std::vector<DraftFault> faults;  ///< why there is nothing, or not everything
};

}  // namespace vantlow
