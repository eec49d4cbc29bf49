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

Exit run_remove(StoreCommand& command, const JobChoice& choice, bool files) {
    bool complete = true;
    const std::vector<Guid> jobs = chosen_jobs(command, choice, complete);
    for (const Guid& job : jobs) {
        if (command.engine.is_running(job)) static_cast<void>(command.engine.stop(job));
    }
    command.engine.wait_for_ends(jobs);
    for (const Guid& job : jobs) {
        const Done done = command.engine.remove(job, files);
        if (exit_of(done, guid_text(job)) != Exit::done) complete = false;
    }
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

    const auto removed = std::make_shared<JobChoice>();
    const auto files = std::make_shared<bool>(false);
    CLI::App& remove = commands.add_on_data_folder(
        "remove", "Remove jobs from the list",
        on_store([removed, files](StoreCommand& command) { return run_remove(command, *removed, *files); }),
        [removed] { return check_job_choice(*removed, false); });
    add_job_choice(remove, *removed, false);
    remove.add_flag("--files", *files, "Delete their files, too");
}

}  // namespace vantlow
