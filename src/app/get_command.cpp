#include "app/get_command.h"

#include "app/dial_up.h"
#include "app/get_run.h"
#include "app/program_proxies.h"
#include "app/say.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/folder.h"
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

// A list that is a file keeps its name while links are added to it; any other is what it says.
std::string list_name(const GetOptions& options, const std::vector<std::string>& links) {
    if (!options.input_file.empty() && options.input_file != "-")
        return to_utf8(absolute_path(to_utf16(options.input_file)));
    std::string name;
    for (const std::string& link : links) name += link + "\n";
    return name;
}

// "-o -": the file goes to the standard output, by a folder of its own that is gone afterwards: in the one
// that
// --dir names, else where the system keeps temporary files.
class TemporaryPlace {
  public:
    TemporaryPlace() = default;
    ~TemporaryPlace() { clean(); }
    TemporaryPlace(const TemporaryPlace&) = delete;
    TemporaryPlace& operator=(const TemporaryPlace&) = delete;

    Complaint use(GetOptions& options) {
        std::u16string within;
        FileError error;
        if (!options.folder.empty()) {
            within = absolute_path(to_utf16(options.folder));
            error = make_folders(within);
        }
        if (error.ok()) error = make_temporary_folder(within, folder_);
        if (!error.ok()) return "There is no place to keep the file in: " + error.text();
        options.folder = to_utf8(folder_);
        options.output = "output";
        return std::nullopt;
    }
    void clean() {
        if (folder_.empty()) return;
        std::vector<FolderEntry> entries;
        static_cast<void>(list_folder(folder_, entries));
        for (const FolderEntry& entry : entries)
            static_cast<void>(remove_file(join_path(folder_, entry.name)));
        static_cast<void>(remove_folder(folder_));
        folder_.clear();
    }

  private:
    std::u16string folder_;
};

// What one `get` works with, all of which outlives its jobs.
struct GetTools {
    ConnectionServices& connections;
    ThreadPool& threads;
    GetOutput& output;
};

Exit run_jobs(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options,
              const RunOptions& run, const std::vector<std::string>& links, const GetTools& tools,
              OutputPipe* pipe) {
    StopSource& stop = app.stop();
    GetRun jobs({tools.connections, app.libraries(), app.settings(), stop, tools.threads}, global, options,
                run, tools.output);
    if (pipe != nullptr) {
        jobs.write_to(*pipe);
    } else {
        auto memory = std::make_unique<ListMemory>(target_folder(options), list_name(options, links));
        if (options.no_resume) memory->forget();
        jobs.remember(std::move(memory));
    }
    for (const std::string& link : links) jobs.add(link);
    jobs.drive([&app] { app.settings().refresh(); });
    return jobs.status();
}

Exit run_to_output(CFerrywellApp& app, const GlobalOptions& global, GetOptions options, RunOptions run,
                   const std::vector<std::string>& links, const GetTools& tools) {
    TemporaryPlace place;
    Complaint complaint = place.use(options);
    if (complaint) return complain(*complaint, Exit::local_file);
    run.keep_state = false;
    tools.output.keep_off_output();
    OutputPipe pipe(tools.threads);
    Exit status = run_jobs(app, global, options, run, links, tools, &pipe);
    if (app.stop().requested()) status = Exit::interrupted;
    if (pipe.is_stuck()) {
        tools.output.close();
        place.clean();
        end_process(static_cast<int>(final_status(status)));
    }
    return status;
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
    const bool to_output = options.output == "-";
    if (!complaint && to_output && global.json)
        complaint = "--output - and --json cannot both have the standard output.";
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
    const GetTools tools{connections, threads, output};
    Exit status = to_output ? run_to_output(app, global, options, run, links, tools)
                            : run_jobs(app, global, options, run, links, tools, nullptr);
    output.close();
    if (stop.requested()) status = Exit::interrupted;
    return leave(connections.resolver, status);
}

}  // namespace vantlow
