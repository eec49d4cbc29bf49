// `vantlow start`, `stop` and `remove`.
#include <memory>

#include "app/foreground.h"
#include "app/job_runner.h"
#include "app/store_commands.h"
#include "base/text.h"
#include "store/job_log_file.h"
#include "transfer/job/file_names.h"

namespace vantlow {
namespace {

struct SteerOptions {
    std::vector<std::string> ids;
    bool all = false;
    bool files = false;
};

Complaint check_ids(const SteerOptions& options) {
    if (options.ids.empty() && !options.all) return "name jobs, or say --all.";
    if (!options.ids.empty() && options.all) return "name jobs or say --all, not both.";
    return std::nullopt;
}

std::vector<CJobNode*> chosen_jobs(StoreCommand& command, const SteerOptions& options, bool& complete) {
    return options.all ? command.store.jobs_below(nullptr) : find_jobs(command, options.ids, complete);
}

Exit run_start(StoreCommand& command, const SteerOptions& options) {
    bool complete = true;
    std::vector<CJobNode*> jobs = chosen_jobs(command, options, complete);
    std::erase_if(jobs, [&](const CJobNode* job) {
        const bool finished = job->state == JobState::finished;
        if (finished && !options.all) complain(guid_text(job->identity) + " is finished already.");
        return finished;
    });
    if (!complete && jobs.empty()) return Exit::failed;
    Exit status = Exit::done;
    if (command.runner != nullptr) {
        for (CJobNode* job : jobs) command.runner->start(*job);
    } else {
        status = run_in_foreground(command, jobs, options.all);
    }
    return complete || status == Exit::interrupted ? status : Exit::failed;
}

Exit run_stop(StoreCommand& command, const SteerOptions& options) {
    bool complete = true;
    for (CJobNode* job : chosen_jobs(command, options, complete)) {
        if (command.runner != nullptr) {
            command.runner->stop(*job);
            command.runner->wait_for_end(*job);
        } else if (job->state == JobState::waiting) {
            command.store.set_state(*job, JobState::stopped);
        }
    }
    return complete ? Exit::done : Exit::failed;
}

// What the job has on the disk: its file, or what there is of it. A finished job's name alone says nothing:
// only what the job itself has written is removed.
bool remove_files(const CJobNode& job) {
    if (name_of(job.path).empty()) return true;
    const std::u16string partial = job.path + std::u16string(partial_suffix);
    const std::u16string state = job.path + std::u16string(state_suffix);
    bool complete = true;
    for (const std::u16string& path : {job.state == JobState::finished ? job.path : partial, state}) {
        const FileError error = remove_file(path);
        if (error.ok() || error.fault == FileFault::not_found) continue;
        complain(to_utf8(path) + ": " + error.text());
        complete = false;
    }
    return complete;
}

Exit run_remove(StoreCommand& command, const SteerOptions& options) {
    bool complete = true;
    std::vector<Guid> identities;
    for (const CJobNode* job : find_jobs(command, options.ids, complete)) identities.push_back(job->identity);
    for (const Guid& identity : identities) {
        if (command.runner != nullptr) {
            command.runner->stop(*command.store.find(identity));
            command.runner->wait_for_end(*command.store.find(identity));
        }
        CJobNode& job = *command.store.find(identity);
        // A job whose files stay is filed no more all the same only when they could be removed.
        if (options.files && !remove_files(job)) {
            complete = false;
            continue;
        }
        remove_job_log(command.app.data_folder(), identity);
        command.store.remove(job);
    }
    return complete ? Exit::done : Exit::failed;
}

}  // namespace

void add_steer_commands(CommandSet& commands) {
    const auto add = [&](const char* word, const char* description, auto run,
                         bool has_all) -> std::pair<CLI::App&, SteerOptions&> {
        const auto options = std::make_shared<SteerOptions>();
        CLI::App& app = commands.add_on_data_folder(
            word, description,
            on_store([options, run](StoreCommand& command) { return run(command, *options); }),
            [options] { return check_ids(*options); });
        app.add_option("ID", options->ids, "The jobs' ids, or the beginnings of them");
        if (has_all) app.add_flag("--all", options->all, "All jobs");
        return {app, *options};
    };
    add("start", "Run jobs: here, where no instance runs", run_start, true);
    add("stop", "Stop jobs; what they have stays", run_stop, true);
    const auto [remove, options] = add("remove", "Remove jobs from the store", run_remove, false);
    remove.add_flag("--files", options.files, "Their files too");
}

}  // namespace vantlow
