#include "app/foreground.h"

#include "app/dial_up.h"
#include "app/get_output.h"
#include "app/resident.h"

namespace vantlow {

Exit run_in_foreground(StoreCommand& command, const std::vector<CJobNode*>& jobs, bool all) {
    GetOutput output(command.global);
    bool failed = false;
    JobRunner::Events events;
    events.ended = [&](const CJobQueue::Ended& ended) {
        failed = failed || !ended.outcome.result.ok();
        output.ended(ended);
    };
    if (command.global.verbose) {
        events.log_line = [&](CJobQueue::Id id, const CLogNode& line) { output.log_line(id, line); };
    }
    CJobLog dial_log(command.global.verbose ? [&output](const CLogNode& line) { output.log_line(0, line); }
                                            : CJobLog::Listener());
    if (const Result dialled = dial_as_set(command.app, dial_log); !dialled.ok()) {
        output.complain(dialled.message());
        return exit_of(dialled);
    }
    Exit status = Exit::failed;
    {
        Resident resident(command.app);
        std::string error;
        if (!resident.open(command.store, Frame::Role::helper, std::move(events), error)) {
            complain(error);
            return Exit::failed;
        }
        if (!all) resident.runner().only_named();
        for (CJobNode* job : jobs) resident.runner().start(*job);
        resident.end_when_idle({output.interval(), [&] { output.show(resident.runner().queue()); }});
        status = resident.run();
    }
    output.close();
    return status == Exit::done && failed ? Exit::failed : status;
}

}  // namespace vantlow
