// `vantlow start`, `stop` and `remove`.
#include <memory>

#include "app/cli/store/store_commands.h"
#include "app/resident/foreground.h"
#include "base/text.h"

namespace vantlow {
namespace {

struct SteerOptions {
    std::vector<std::string> ids;
    bool all = false;
    bool files = false;
};

Complaint check_ids(const SteerOptions& options, bool has_all) {
    if (options.ids.empty() && !has_all) return "name at least one job.";
    if (options.ids.empty() && !options.all) return "name at least one job, or use --all.";
    if (!options.ids.empty() && options.all) return "name jobs or use --all, not both.";
    return std::nullopt;
}

std::vector<Guid> chosen_jobs(StoreCommand& command, const SteerOptions& options, bool& complete) {
    if (!options.all) return find_jobs(command, options.ids, complete);
    std::vector<Guid> jobs;
    for (const CJobNode* job : command.engine.jobs_below(nullptr)) jobs.push_back(job->identity);
    return jobs;
}

Exit run_start(StoreCommand& command, const SteerOptions& options) {
    bool complete = true;
    std::vector<Guid> jobs = chosen_jobs(command, options, complete);
    std::erase_if(jobs, [&](const Guid& job) {
        const bool finished = command.engine.find(job)->state == JobState::finished;
        if (finished && !options.all) complain(guid_text(job) + " has finished already.");
        return finished;
    });
    if (!complete && jobs.empty()) return Exit::failed;
    Exit status = Exit::done;
    if (command.engine.runs()) {
        for (const Guid& job : jobs) static_cast<void>(command.engine.start(job));  // was found a moment ago
    } else {
        status = run_in_foreground(command, jobs, options.all);
    }
    return complete || status == Exit::interrupted ? status : Exit::failed;
}

Exit run_stop(StoreCommand& command, const SteerOptions& options) {
    bool complete = true;
    const std::vector<Guid> jobs = chosen_jobs(command, options, complete);
    for (const Guid& job : jobs) static_cast<void>(command.engine.stop(job));  // was found a moment ago
    command.engine.wait_for_ends(jobs);
    return complete ? Exit::done : Exit::failed;
}

Exit run_remove(StoreCommand& command, const SteerOptions& options) {
    bool complete = true;
    const std::vector<Guid> jobs = find_jobs(command, options.ids, complete);
    for (const Guid& job : jobs) {
        if (command.engine.is_running(job)) static_cast<void>(command.engine.stop(job));
    }
    command.engine.wait_for_ends(jobs);
    for (const Guid& job : jobs) {
        const Done done = command.engine.remove(job, options.files);
        if (exit_of(done, guid_text(job)) != Exit::done) complete = false;
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
            [options, has_all] { return check_ids(*options, has_all); });
        app.add_option("ID", options->ids, "The jobs' ids, or the beginnings of them");
        if (has_all) app.add_flag("--all", options->all, "All jobs");
        return {app, *options};
    };
    add("start", "Start jobs; in this terminal, where the resident program is not running", run_start, true);
    add("stop", "Stop jobs; what they have downloaded is kept", run_stop, true);
    const auto [remove, options] = add("remove", "Remove jobs from the list", run_remove, false);
    remove.add_flag("--files", options.files, "Delete their files, too");
}

}  // namespace vantlow
