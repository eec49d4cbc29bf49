#include "app/cli/get/get_command.h"

#include "app/cli/get/get_run.h"
#include "app/process/dial_up.h"
#include "app/process/messages.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/folder.h"
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

// A list that is a file keeps its name while links are added to it; any other is what it says.
std::string list_name(const GetOptions& options, const std::vector<std::string>& links) {
    if (!options.input_file.empty() && options.input_file != "-")
        return to_utf8(absolute_path(to_utf16(options.input_file)));
    std::string name;
    for (const std::string& link : links) name += link + "\n";
    return name;
}

// "-o -": the file goes to the standard output, by a folder of its own that is gone afterwards: in the one
// that --dir names, else where the system keeps temporary files.
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
              std::vector<std::string> links, const GetTools& tools, OutputPipe* pipe) {
    Engine::Options made = app.engine_options();
    made.keeps_state = made.follows = pipe == nullptr;
    Engine engine(JobStore::in_memory(target_folder(options)), std::move(made));
    GetRun jobs(engine, tools.output, app.stop(), tools.threads, options);
    engine.run({tools.connections, tools.threads, {}, jobs.question_time(), global.verbose});
    if (pipe != nullptr) {
        jobs.write_to(*pipe);
    } else {
        auto memory = std::make_unique<ListMemory>(target_folder(options), list_name(options, links));
        if (options.no_resume) memory->forget();
        jobs.remember(std::move(memory));
    }
    JobDraft draft = draft_of(options, u".");
    draft.links = std::move(links);
    jobs.add(draft);
    draft = {};
    jobs.drive();
    engine.end_running();
    return jobs.status();
}

Exit run_to_output(CFerrywellApp& app, const GlobalOptions& global, GetOptions options,
                   std::vector<std::string> links, const GetTools& tools) {
    TemporaryPlace place;
    Complaint complaint = place.use(options);
    if (complaint) return complain(*complaint, Exit::local_file);
    tools.output.keep_off_output();
    OutputPipe pipe(tools.threads);
    Exit status = run_jobs(app, global, options, std::move(links), tools, &pipe);
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
    std::vector<std::string> links;
    Complaint complaint = override_settings(app.settings(), options);
    if (!complaint) complaint = check_draft(options);
    if (!complaint) complaint = look_at_proxies(app, options);
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
    const GetTools tools{connections, threads, output};
    Exit status = to_output ? run_to_output(app, global, options, std::move(links), tools)
                            : run_jobs(app, global, options, std::move(links), tools, nullptr);
    output.close();
    if (stop.requested()) status = Exit::interrupted;
    return leave(connections.resolver, status);
}

}  // namespace vantlow
