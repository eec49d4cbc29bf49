#include "app/foreground.h"

#include "app/dial_up.h"
#include "app/get_output.h"
#include "app/job_runner.h"
#include "platform/process.h"

namespace vantlow {
namespace {

void on_interrupt(void* context, int count) {
    if (count > 1) end_process(static_cast<int>(Exit::interrupted));
    static_cast<StopSource*>(context)->request();
}

}  // namespace

Exit run_in_foreground(StoreCommand& command, const std::vector<CJobNode*>& jobs, bool all) {
    CFerrywellApp& app = command.app;
    GetOutput output(command.global);
    ConnectionServices connections(&app.libraries().secur);
    ThreadPool threads;
    const InterruptWatch watch(on_interrupt, &app.stop());
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
    if (const Result dialled = dial_as_set(app, dial_log); !dialled.ok()) {
        output.complain(dialled.message());
        return exit_of(dialled);
    }
    std::string error;
    bool saved = true;
    {
        JobRunner runner(app, command.store, connections, threads, std::move(events));
        if (!all) runner.only_named();
        for (CJobNode* job : jobs) runner.start(*job);
        app.set_runner(&runner);
        runner.pump();
        auto next_tick = from_now(std::chrono::seconds(1));
        while (runner.has_work()) {
            runner.pump(output.interval());
            output.show(runner.queue());
            if (Clock::now() < next_tick) continue;
            runner.tick();
            next_tick = from_now(std::chrono::seconds(1));
        }
        saved = runner.close(error);
        app.set_runner(nullptr);
    }
    output.close();
    if (!saved) complain(error);
    const Exit status = app.stop().requested() ? Exit::interrupted
                        : failed || !saved     ? Exit::failed
                                               : Exit::done;
    // A name that the system is still looking up cannot be called back; everything is saved.
    if (!connections.resolver.settle(std::chrono::milliseconds(50))) end_process(static_cast<int>(status));
    return status;
}

}  // namespace vantlow
