// `vantlow start`: in the process that runs the jobs, or, where there is none, in this terminal.
#include <memory>

#include "app/cli/store/store_command.h"
#include "app/cli/terminal_client.h"
#include "app/process/system_settings.h"
#include "app/resident/resident.h"

namespace vantlow {
namespace {

// Runs the jobs in this terminal until all of them have ended, or Ctrl-C; shows their progress as `get` does.
// With `all` also jobs that are added meanwhile are run.
Exit run_in_foreground(StoreCommand& command, const std::vector<Guid>& jobs, bool all, ReadWords read) {
    JobOutput output(command.global);
    CJobLog dial_log(command.global.verbose ? [&output](const CLogNode& line) { output.log_line(0, line); }
                                            : CJobLog::Listener());
    if (const Result dialled = dial_as_set(command.app, dial_log); !dialled.ok()) {
        output.complain(dialled.message());
        return exit_of(dialled);
    }
    Exit status = Exit::failed;
    Exit of_jobs = Exit::done;
    {
        Resident resident(command.app, command.engine, read);
        TerminalClient terminal(command.engine, output, command.app.stop(), resident.threads());
        std::string error;
        if (!resident.open(EventLoop::Role::helper, terminal.question_time(), command.global.verbose, error))
            return complain(error);
        if (!all) command.engine.run_only_started();
        for (const Guid& job : jobs) static_cast<void>(command.engine.start(job));  // was found a moment ago
        resident.end_when_idle({output.interval(), [&] { output.show(command.engine); }});
        status = resident.run();
        of_jobs = terminal.status();
    }
    output.close();
    return status == Exit::done && of_jobs != Exit::done ? Exit::failed : status;
}

Exit run_start(StoreCommand& command, const JobChoice& choice, bool over, ReadWords read) {
    bool complete = true;
    std::vector<Guid> jobs = chosen_jobs(command, choice, complete);
    std::erase_if(jobs, [&](const Guid& job) {
        const CJobNode& record = *command.engine.find(job);
        const bool finished = record.state == JobState::finished;
        if (finished && over) return false;
        // The resident program shares it again.
        if (finished && command.engine.runs() && !choice.all && kind_of(record) == JobKind::torrent)
            return false;
        if (finished && !choice.all) complain(guid_text(job) + " has finished already.");
        return finished;
    });
    if (over) {
        std::erase_if(jobs, [&](const Guid& job) {
            const bool done = exit_of(command.engine.start_over(job), guid_text(job)) == Exit::done;
            complete = complete && done;
            return !done;
        });
    }
    if (!complete && jobs.empty()) return Exit::failed;
    Exit status = Exit::done;
    if (command.engine.runs()) {
        for (const Guid& job : jobs) static_cast<void>(command.engine.start(job));  // was found a moment ago
    } else {
        status = run_in_foreground(command, jobs, choice.all, read);
    }
    return complete || status == Exit::interrupted ? status : Exit::failed;
}

}  // namespace

void add_start_command(CommandSet& commands) {
    const auto choice = std::make_shared<JobChoice>();
    const auto over = std::make_shared<bool>(false);
    const ReadWords read = commands.reader();
    CLI::App& start = commands.add_on_data_folder(
        "start", "Start jobs; in this terminal, where the resident program is not running",
        on_store(
            [choice, over, read](StoreCommand& command) { return run_start(command, *choice, *over, read); }),
        [choice, over]() -> Complaint {
            if (*over && choice->all) return "--over is for jobs that are named.";
            return check_job_choice(*choice, true);
        });
    add_job_choice(start, *choice, true);
    start.add_flag("--over", *over, "Forget what they have downloaded, and begin anew; finished ones, too");
}

}  // namespace vantlow
