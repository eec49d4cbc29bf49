#include "app/resident/foreground.h"

#include "app/cli/terminal_client.h"
#include "app/process/dial_up.h"
#include "app/resident/resident.h"

namespace vantlow {

Exit run_in_foreground(StoreCommand& command, const std::vector<Guid>& jobs, bool all) {
    GetOutput output(command.global);
    CJobLog dial_log(command.global.verbose ? [&output](const CLogNode& line) { output.log_line(0, line); }
                                            : CJobLog::Listener());
    if (const Result dialled = dial_as_set(command.app, dial_log); !dialled.ok()) {
        output.complain(dialled.message());
        return exit_of(dialled);
    }
    Exit status = Exit::failed;
    Exit of_jobs = Exit::done;
    {
        Resident resident(command.app, command.engine);
        TerminalClient terminal(command.engine, output, command.app.stop(), resident.threads());
        std::string error;
        if (!resident.open(Frame::Role::helper, terminal.question_time(), command.global.verbose, error))
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

}  // namespace vantlow
