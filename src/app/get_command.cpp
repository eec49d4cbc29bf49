#include "app/get_command.h"

#include "app/dial_up.h"
#include "app/get_run.h"
#include "app/program_proxies.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// Servers that SSH does not know are accepted as the words say, else the person is asked.
SshRules ssh_rules(const GetOptions& options, GetOutput& output, const StopSource& stop) {
    SshRules rules;
    rules.folder = join_path(home_folder(), u".ssh");
    if (!options.key_file.empty()) rules.key_file = absolute_path(to_utf16(options.key_file));
    HostKeys::Ask ask = [](const std::string&, const std::string&) { return true; };
    if (!options.accept_host_key) {
        ask = [&output, &stop](const std::string& host, const std::string& fingerprint) {
            return output.ask_yes_or_no("The server " + host + " is not known. Its key is " + fingerprint +
                                            ".\nTrust it from now on? (yes/no) ",
                                        stop);
        };
    }
    rules.hosts = std::make_shared<HostKeys>(rules.folder, std::move(ask));
    return rules;
}

}  // namespace

Exit run_get(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options) {
    GetOutput output(global);
    RunOptions run;
    run.default_agent = u"Vantlow/" + app.version();
    std::vector<std::string> links;
    Complaint complaint = override_settings(app.settings(), options);
    if (!complaint) complaint = read_run_options(options, run);
    if (!complaint) complaint = add_program_proxies(app, run);
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
    run.ssh = ssh_rules(options, output, stop);
    Exit status = Exit::done;
    {
        GetRun jobs({connections, app.libraries(), app.settings(), stop, threads}, global, options, run,
                    output);
        for (const std::string& link : links) jobs.add(link);
        links.clear();
        jobs.drive([&app] { app.settings().refresh(); });
        status = jobs.status();
    }
    output.close();
    if (stop.requested()) status = Exit::interrupted;
    return leave(connections.resolver, status);
}

}  // namespace vantlow
