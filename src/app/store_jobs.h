// From links to jobs that are filed in the store.
#pragma once

#include <string>
#include <vector>

#include "app/get_options.h"
#include "app/store_command.h"

namespace vantlow {

struct AddedJobs {
    std::vector<CJobNode*> jobs;
    bool complete = true;  ///< every link became jobs; what did not was complained about
};

/// Files the jobs of the links (or documents on this machine). Without a folder in the options they go to the
/// category's. What an earlier `get` left of one of them in its folder is continued.
AddedJobs add_jobs(StoreCommand& command, const GetOptions& options, const std::vector<std::string>& links,
                   CClassNode& category, bool paused);

}  // namespace vantlow
