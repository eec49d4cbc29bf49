// `vantlow stop` and `remove`.
#include <memory>

#include "app/cli/store/store_command.h"

namespace vantlow {
namespace {

Exit run_stop(StoreCommand& command, const JobChoice& choice) {
    bool complete = true;
    const std::vector<Guid> jobs = chosen_jobs(command, choice, complete);
    for (const Guid& job : jobs) static_cast<void>(command.engine.stop(job));  // was found a moment ago
    command.engine.wait_for_ends(jobs);
    return complete ? Exit::done : Exit::failed;
}

struct RemoveOptions {
    JobChoice jobs;
    bool files = false;
    bool bin = false;
};

Exit run_remove(StoreCommand& command, const RemoveOptions& options) {
    bool complete = true;
    const std::vector<Guid> jobs = chosen_jobs(command, options.jobs, complete);
    for (const Guid& job : jobs) {
        if (command.engine.is_running(job) || command.engine.is_sharing(job) || command.engine.is_moving(job))
            static_cast<void>(command.engine.stop(job));
    }
    command.engine.wait_for_ends(jobs);
    const Files files = options.bin ? Files::bin : options.files ? Files::erase : Files::keep;
    const Removed removed = command.engine.remove_all(jobs, files);
    for (const auto& [job, done] : removed.failures) static_cast<void>(exit_of(done, guid_text(job)));
    complete = complete && removed.failures.empty();
    return complete ? Exit::done : Exit::failed;
}

}  // namespace

void add_steer_commands(CommandSet& commands) {
    const auto stopped = std::make_shared<JobChoice>();
    CLI::App& stop = commands.add_on_data_folder(
        "stop", "Stop jobs; the parts that they have downloaded are kept",
        on_store([stopped](StoreCommand& command) { return run_stop(command, *stopped); }),
        [stopped] { return check_job_choice(*stopped, true); });
    add_job_choice(stop, *stopped, true);

    const auto removed = std::make_shared<RemoveOptions>();
    CLI::App& remove = commands.add_on_data_folder(
        "remove", "Remove jobs from the list",
        on_store([removed](StoreCommand& command) { return run_remove(command, *removed); }),
        [removed]() -> Complaint {
            if (removed->files && removed->bin) return "--files deletes what --bin would keep: choose one.";
            return check_job_choice(removed->jobs, false);
        });
    add_job_choice(remove, removed->jobs, false);
    remove.add_flag("--files", removed->files, "Delete their files, too");
    remove.add_flag("--bin", removed->bin, "Move their files to the desktop's bin");
}

}  // namespace vantlow
