#include "app/get_command.h"

#include "app/dial_up.h"
#include "app/get_run.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// Once for all jobs, before the first of them begins.
Complaint look_at_proxies(CFerrywellApp& app, const GetOptions& options) {
    CJobNode job;
    job.proxy = to_utf16(options.proxy);
    ProxyFault fault;
    static_cast<void>(run_options_of(job, app.settings(), app.data_folder(), fault));
    return text_of(fault);
}

}  // namespace

Exit run_get(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options) {
    GetOutput output(global);
    std::vector<std::string> links;
    Complaint complaint = override_settings(app.settings(), options);
    if (!complaint) complaint = check_draft(options);
    if (!complaint) complaint = look_at_proxies(app, options);
    if (!complaint) complaint = read_links(options, links);
    if (complaint) {
        output.complain(*complaint);
        return Exit::usage;
    }

    ConnectionServices connections(&app.libraries().secur);
    StopSource& stop = app.stop();
    ThreadPool threads;
    const InterruptWatch watch(stop_at_interrupt, &stop);
    CJobLog dial_log(global.verbose ? [&output](const CLogNode& line) { output.log_line(0, line); }
                                    : CJobLog::Listener());
    if (const Result dialled = dial_as_set(app, dial_log); !dialled.ok()) {
        output.complain(dialled.message());
        return exit_of(dialled);
    }
    Exit status = Exit::done;
    {
        Engine engine(JobStore::in_memory(absolute_path(u".")), app.engine_options());
        GetRun jobs(engine, output, stop, threads);
        engine.run({connections, threads, {}, jobs.question_time(), global.verbose});
        JobDraft draft = draft_of(options, u".");
        draft.links = std::move(links);
        jobs.add(draft);
        draft = {};
        jobs.drive();
        status = jobs.status();
    }
    output.close();
    if (stop.requested()) status = Exit::interrupted;
    return leave(connections.resolver, status);
}

}  // namespace vantlow
