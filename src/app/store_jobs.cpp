#include "app/store_jobs.h"

#include "app/job_factory.h"
#include "base/text.h"

namespace vantlow {
namespace {

// The factory continues what it finds in the folder; what already belongs to a job of the store stays with
// it.
void detach(CJobNode& job) {
    job.identity = {};
    job.segments.clear();
    job.file_size = -1;
    job.validators = {};
    job.partial_mark = {};
    job.path = folder_of(job.path) + path_separator();
}

void set_hash(CJobNode& job, const GetOptions& options) {
    RunOptions run;
    static_cast<void>(read_run_options(options, run));  // was checked with the words
    if (!run.hash) return;
    auto sources = job.sources ? std::make_shared<JobSources>(*job.sources) : std::make_shared<JobSources>();
    sources->whole = run.hash;
    job.sources = std::move(sources);
}

}  // namespace

AddedJobs add_jobs(StoreCommand& command, const GetOptions& options, const std::vector<std::string>& links,
                   CClassNode& category, bool paused) {
    AddedJobs added;
    GetOptions with_folder = options;
    if (with_folder.folder.empty()) with_folder.folder = to_utf8(category.folder);
    JobFactory factory(with_folder, netrc_lookup());
    for (const std::string& link : links) {
        MadeJobs made = factory.make(link);
        if (!made.complaint.empty()) {
            complain(made.complaint);
            added.complete = false;
        }
        for (JobRequest& request : made.jobs) {
            CJobNode& job = *request.job;
            if (command.store.find(job.identity) != nullptr) detach(job);
            job.proxy = to_utf16(options.proxy);
            set_hash(job, options);
            job.start_mode = paused ? 0 : 1;
            job.state = paused ? JobState::stopped : JobState::waiting;
            added.jobs.push_back(&command.store.add(std::move(request.job), category));
        }
    }
    return added;
}

}  // namespace vantlow
