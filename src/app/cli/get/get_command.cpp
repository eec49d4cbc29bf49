// `vantlow get`: the command from its options to its exit status.
#include <memory>

#include "app/cli/command_set.h"
#include "app/cli/get/get_run.h"
#include "app/process/application.h"
#include "app/process/ending.h"
#include "app/process/system_settings.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "bt/torrent_settings.h"
#include "engine/schedule_texts.h"
#include "platform/console.h"
#include "platform/folder.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// Connections and jobs that are asked for by number are meant, also where all of them go to one server: its
// limit goes up to their number, unless the limit itself was set for this run as well.
void raise_server_limit(Settings& settings, const GetOptions& options) {
    const NumberSetting& limit = setting::max_per_server;
    if (settings.is_overridden(limit)) return;
    const std::int64_t asked = std::int64_t{options.job.connections.value_or(1)} * options.jobs.value_or(1);
    const std::int64_t allowed = settings.number(limit);
    if (allowed == 0 || asked <= allowed) return;
    settings.override_value(limit.section, limit.key, to_utf16(std::to_string(asked)));
}

// Puts the options' values in place of the settings, for this run only.
Complaint override_settings(Settings& settings, const GetOptions& options) {
    const auto set = [&](const NumberSetting& setting, std::int64_t value) {
        settings.override_value(setting.section, setting.key, to_utf16(std::to_string(value)));
    };
    if (Complaint complaint = check_named_files(options.job)) return complaint;
    if (!options.ip_filter.empty()) {
        const std::u16string list = absolute_path(to_utf16(options.ip_filter));
        if (path_kind(list) != PathKind::file)
            return "--ip-filter: there is no file " + options.ip_filter + ".";
        settings.override_value(setting::ip_filter.section, setting::ip_filter.key, u"1");
        settings.override_value(setting::ip_filter_file.section, setting::ip_filter_file.key, list);
    }
    if (!options.way.empty()) {
        const TextSetting& way = setting::network_interface;
        settings.override_value(way.section, way.key, to_utf16(options.way));
    }
    if (options.port) set(setting::peer_port, *options.port);
    if (options.jobs) set(setting::max_jobs, *options.jobs);
    // The trackers of torrents know the settings, not the options of a job.
    if (options.job.insecure) set(setting::verify_peer, 0);
    if (!options.job.ca_file.empty()) {
        settings.override_value(setting::ca_file.section, setting::ca_file.key,
                                absolute_path(to_utf16(options.job.ca_file)));
    }
    if (!options.job.limit.empty()) {
        const std::int64_t rate = parse_rate(options.job.limit).value_or(0);
        set(setting::limit, rate > 0 ? 1 : 0);
        if (rate > 0) set(setting::speed_limit, rate);
    }
    if (!options.job.upload_limit.empty())
        set(setting::upload_limit, parse_rate(options.job.upload_limit).value_or(0));
    raise_server_limit(settings, options);
    return std::nullopt;
}

// Complains of the proxy once for all jobs, before the first of them begins.
Complaint look_at_proxies(CFerrywellApp& app, const JobOptions& options) {
    CJobNode job;
    job.proxy = to_utf16(options.proxy);
    ProxyFault fault;
    static_cast<void>(run_options_of(job, app.settings(), app.data_folder(), fault));
    return text_of(fault);
}

// A file keeps its name while links are added to it, any other list is known by its links.
ListMemory::List list_of(const JobOptions& options, const std::vector<std::string>& links) {
    const bool has_file = !options.input_file.empty() && options.input_file != "-";
    // Who names a single link wants it now, whatever it was part of before.
    const bool is_single = options.input_file.empty() && links.size() == 1;
    return {has_file ? to_utf8(absolute_path(to_utf16(options.input_file))) : std::string(), links,
            !is_single};
}

// A folder of its own for a file that goes to the standard output ("-o -"): in the one that --dir names, else
// where the system keeps temporary files. It goes with the object.
class TemporaryPlace {
  public:
    TemporaryPlace() = default;
    ~TemporaryPlace() { clean(); }
    TemporaryPlace(const TemporaryPlace&) = delete;
    TemporaryPlace& operator=(const TemporaryPlace&) = delete;

    Complaint use(JobOptions& options) {
        std::u16string within;
        FileError error;
        if (!options.folder.empty()) {
            within = absolute_path(to_utf16(options.folder));
            error = make_folders(within);
        }
        if (error.ok()) error = make_temporary_folder(within, folder_);
        if (!error.ok()) return "No temporary folder can be made for the file: " + error.text();
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

// The tools of one `get`, all of which outlive its jobs.
struct GetTools {
    ConnectionServices& connections;
    ThreadPool& threads;
    JobOutput& output;
    std::optional<std::int64_t> until;  ///< when it stops, seconds since 1970
};

Exit run_jobs(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options,
              std::vector<std::string> links, const GetTools& tools, OutputPipe* pipe) {
    Engine::Options made = app.engine_options();
    made.keeps_state = made.follows = pipe == nullptr;
    made.sharing.ratio = options.seed.ratio.value_or(0);
    if (!options.seed.time.empty()) made.sharing.time = parse_span(options.seed.time).value();
    made.sharing.goes_on =
        options.seed.seed || made.sharing.ratio > 0 || made.sharing.time > std::chrono::seconds(0);
    Engine engine(JobStore::in_memory(target_folder(options.job)), std::move(made));
    GetRun jobs(engine, tools.output, app.stop(), tools.threads, options);
    Engine::Running running{tools.connections, tools.threads};
    running.question_time = jobs.question_time();
    running.gathers_log = global.verbose;
    running.before_name = [&jobs](const NameKeeper::Naming& naming) { jobs.before_name(naming); };
    engine.run(std::move(running));
    if (pipe != nullptr) {
        jobs.write_to(*pipe);
    } else {
        auto memory = std::make_unique<ListMemory>(target_folder(options.job), list_of(options.job, links));
        if (options.job.no_resume) memory->forget();
        jobs.remember(std::move(memory));
    }
    JobDraft draft = draft_of(options.job, u".");
    draft.links = std::move(links);
    jobs.add(draft);
    draft = {};
    if (tools.until) jobs.end_at(*tools.until);
    jobs.drive();
    engine.end_running();
    if (jobs.was_ended_by_clock()) return Exit::failed;
    return app.stop().requested() ? Exit::interrupted : jobs.status();
}

Exit run_to_output(CFerrywellApp& app, const GlobalOptions& global, GetOptions options,
                   std::vector<std::string> links, const GetTools& tools) {
    TemporaryPlace place;
    Complaint complaint = place.use(options.job);
    if (complaint) return complain(*complaint, Exit::local_file);
    tools.output.keep_off_output();
    OutputPipe pipe(tools.threads);
    const Exit status = run_jobs(app, global, options, std::move(links), tools, &pipe);
    if (pipe.is_stuck()) {
        tools.output.close();
        place.clean();
        end_process(static_cast<int>(final_status(status)));
    }
    return status;
}

/// The moments of --at and --until, seconds since 1970.
struct Moments {
    std::optional<std::int64_t> start;
    std::optional<std::int64_t> stop;
};

std::optional<Moments> moments_of(const GetOptions& options) {
    const auto times =
        read_times({options.at, options.until, {}, 0}, system_wall_clock.now(), system_wall_clock);
    if (!times) return std::nullopt;
    Moments moments;
    for (const CScheduleNode& entry : *times)
        (entry.action == schedule_action::start ? moments.start : moments.stop) = entry.time;
    return moments;
}

// The clock on the wall may be set while this waits.
void wait_until(std::int64_t moment, const StopSource& stop) {
    constexpr std::int64_t longest = 10;
    for (std::int64_t left = 1; left > 0 && !stop.wait_for(std::chrono::seconds(std::min(left, longest)));)
        left = moment - system_wall_clock.now();
}

Exit run_get(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options) {
    JobOutput output(global);
    std::vector<std::string> links;
    Complaint complaint = override_settings(app.settings(), options);
    if (!complaint) complaint = check_draft(options.job);
    if (!complaint) complaint = look_at_proxies(app, options.job);
    if (!complaint) complaint = read_links(options.job, links);
    const auto moments = moments_of(options);
    if (!complaint && !moments) complaint = std::string(times_complaint);
    const bool to_output = options.job.output == "-";
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
    if (moments->start) wait_until(*moments->start, stop);
    if (stop.requested()) return Exit::interrupted;
    CJobLog dial_log(global.verbose ? [&output](const CLogNode& line) { output.log_line(0, line); }
                                    : CJobLog::Listener());
    if (const Result dialled = dial_as_set(app, dial_log); !dialled.ok()) {
        output.complain(dialled.message());
        return exit_of(dialled);
    }
    const GetTools tools{connections, threads, output, moments->stop};
    const Exit status = to_output ? run_to_output(app, global, options, std::move(links), tools)
                                  : run_jobs(app, global, options, std::move(links), tools, nullptr);
    output.close();
    return leave(connections.resolver, status);
}

Complaint check_get(const GetOptions& options) {
    if (Complaint complaint = check_job_options(options.job)) return complaint;
    if (Complaint complaint = check_seed_options(options.seed)) return complaint;
    if (options.give_up_after.empty() || parse_span(options.give_up_after)) return std::nullopt;
    return "--give-up-after takes a span of time (90s, 5m, 2h, 1d), not \"" + options.give_up_after + "\".";
}

}  // namespace

void add_get_command(CommandSet& commands) {
    const auto options = std::make_shared<GetOptions>();
    CLI::App& get = commands.add(
        "get", "Fetch files now, in this terminal",
        [options](CFerrywellApp& app, const GlobalOptions& global) { return run_get(app, global, *options); },
        [options] { return check_get(*options); });
    add_job_options(get, options->job);
    get.get_option("--output")
        ->description("The name of the file, where there is one link only (-: standard output)");
    get.add_option("-j,--jobs", options->jobs, "Jobs at once (default: 3)")->check(CLI::Range(1, 1000));
    get.add_option("--limit", options->job.limit, "Bytes a second for all connections together (500K, 2M)");
    get.add_option("--at", options->at, "When to begin: 22:00, or 2026-11-27T22:00, in the local time");
    get.add_option("--until", options->until, "When to stop; the same command goes on later");
    get.add_option("--give-up-after", options->give_up_after,
                   "The time that a job tries without a byte: 90s, 5m, 2h, 1d; 0: without end (default: "
                   "without end in a terminal and with --retries, else 1d)");
    add_seed_options(get, options->seed);
    get.add_option("--port", options->port,
                   "The port at which a torrent's peers call, TCP and UDP (default: a free one)")
        ->check(CLI::Range(1, 65535));
    get.add_option("--interface", options->way,
                   "The network interface, or its address, that all packets of torrents are held to");
    get.add_option(
        "--ip-filter", options->ip_filter,
        "A list of addresses that are no peers of torrents, as ipfilter.dat in the data folder is");
}

}  // namespace vantlow
