#include "app/get_command.h"

#include <deque>
#include <map>
#include <optional>

#include "app/dial_up.h"
#include "app/get_output.h"
#include "app/job_factory.h"
#include "app/netrc.h"
#include "app/program_proxies.h"
#include "app/rate_text.h"
#include "app/torrent_desk.h"
#include "app/torrent_plans.h"
#include "base/codes.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/file.h"
#include "platform/process.h"
#include "store/proxy_address.h"
#include "transfer/job/proxy_rules.h"
#include "transfer/job/queue.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_netrc = 256 * 1024;
constexpr std::size_t largest_list = 256 * 1024 * 1024;

Complaint apply_settings(Settings& settings, const GetOptions& options) {
    const auto set = [&](const NumberSetting& setting, std::int64_t value) {
        settings.override_value(setting.section, setting.key, to_utf16(std::to_string(value)));
    };
    if (options.jobs) set(setting::max_jobs, *options.jobs);
    if (options.overwrite == "rename") set(setting::overwrite_rule, 0);
    if (options.overwrite == "overwrite") set(setting::overwrite_rule, 2);
    if (options.overwrite == "cancel") set(setting::overwrite_rule, 1);
    if (options.insecure) set(setting::verify_peer, 0);
    if (!options.ca_file.empty()) {
        const std::u16string path = absolute_path(to_utf16(options.ca_file));
        if (path_kind(path) != PathKind::file) return "--ca-file: there is no file " + options.ca_file + ".";
        settings.override_value(setting::ca_file.section, setting::ca_file.key, path);
    }
    if (!options.limit.empty()) {
        const auto rate = parse_rate(options.limit);
        if (!rate || *rate < 0)
            return "--limit takes bytes a second (500K, 2M), not \"" + options.limit + "\".";
        set(setting::limit, *rate > 0 ? 1 : 0);
        if (*rate > 0) set(setting::speed_limit, *rate);
    }
    return std::nullopt;
}

Complaint read_hash(const GetOptions& options, RunOptions& run) {
    if (options.hash.empty()) return std::nullopt;
    const auto colon = options.hash.find(':');
    const auto kind = digest_kind(std::string_view(options.hash).substr(0, colon));
    const auto digest = colon == std::string::npos
                            ? std::nullopt
                            : from_hex(std::string_view(options.hash).substr(colon + 1));
    if (!kind || !digest || digest->size() != digest_size(*kind)) {
        return "--hash takes md5:, sha1: or sha256: and the digest in hexadecimal digits.";
    }
    run.hash = ExpectedHash{*kind, *digest};
    return std::nullopt;
}

Complaint read_proxy(const GetOptions& options, RunOptions& run) {
    if (options.proxy.empty()) return std::nullopt;
    const auto proxy = parse_proxy(to_utf16(options.proxy));
    if (!proxy) {
        return "--proxy takes http://, connect://, socks4:// or socks5:// with [user:password@]host:port.";
    }
    run.proxy = proxy_plan(*proxy);
    return std::nullopt;
}

void add_lines(std::string_view text, std::vector<std::string>& links) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    for (std::string_view line : split(text, '\n')) {
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        line = trim(line);
        if (!line.empty() && line.front() != '#') links.emplace_back(line);
    }
}

}  // namespace

Complaint read_run_options(const GetOptions& options, RunOptions& run) {
    if (options.cookie.starts_with('@') &&
        path_kind(absolute_path(to_utf16(options.cookie.substr(1)))) != PathKind::file) {
        return "--cookie: there is no file " + options.cookie.substr(1) + ".";
    }
    Complaint complaint = read_hash(options, run);
    return complaint ? complaint : read_proxy(options, run);
}

Complaint read_links(const GetOptions& options, std::vector<std::string>& links) {
    links = options.links;
    if (options.input_file.empty()) return std::nullopt;
    if (options.input_file == "-") {
        add_lines(read_standard_input(largest_list), links);
        return std::nullopt;
    }
    std::vector<std::byte> bytes;
    const std::u16string path = absolute_path(to_utf16(options.input_file));
    if (const FileError error = read_file(path, largest_list, bytes); !error.ok()) {
        return options.input_file + ": " + error.text();
    }
    add_lines({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, links);
    return std::nullopt;
}

CredentialLookup netrc_lookup() {
    auto entries = std::make_shared<std::optional<Netrc>>();
    return [entries](const std::string& host) -> std::optional<NetrcEntry> {
        if (!*entries) {
            std::vector<std::byte> bytes;
            const std::u16string path =
                join_path(home_folder(), path_separator() == u'\\' ? u"_netrc" : u".netrc");
            const bool there = read_file(path, largest_netrc, bytes).ok();
            *entries = parse_netrc(
                there ? std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size())
                      : std::string_view{});
        }
        return find_netrc(**entries, host);
    };
}

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

// The status of all jobs together: that of the only failure, or the one that all failures share.
class StatusOfAll {
  public:
    void add(const Result& result) {
        const Exit status = exit_of(result);
        if (status == Exit::done) return;
        status_ = failed_ && status != status_ ? Exit::failed : status;
        failed_ = true;
    }
    [[nodiscard]] Exit status() const noexcept { return status_; }

  private:
    bool failed_ = false;
    Exit status_ = Exit::done;
};

/// The torrents of one `get`: their trackers are asked, their peers told; then they end, as nobody can fetch
/// from peers yet.
class TorrentsOfGet {
  public:
    TorrentsOfGet(const AnnounceServices& services, StopSource& stop, ProxyPlan proxy, bool json,
                  GetOutput& output, StatusOfAll& all)
        : desk_(services, stop), proxy_(std::move(proxy)), json_(json), output_(output), all_(all) {}

    void add(CJobQueue::Id id, std::unique_ptr<CJobNode> job, CJobLog::Listener listener) {
        waiting_.push_back({id, std::move(job), std::move(listener)});
    }
    [[nodiscard]] bool has_work() const noexcept { return !waiting_.empty() || !asked_.empty(); }
    void look() {
        while (!waiting_.empty() && !desk_.is_full()) {
            Torrent next = std::move(waiting_.front());
            waiting_.pop_front();
            desk_.begin(*next.job, proxy_, std::move(next.listener));
            asked_.emplace(next.job->identity, std::move(next));
        }
        std::vector<CJobQueue::Ended> ended;
        desk_.look([&](const Guid& identity, const std::string& summary) {
            Torrent torrent = std::move(asked_.at(identity));
            asked_.erase(identity);
            JobOutcome outcome;
            outcome.result = {Code::unsupported, summary};
            if (!json_) torrent.job->address = shown_torrent(torrent.job->address);
            ended.push_back({torrent.id, std::move(torrent.job), std::move(outcome)});
        });
        for (const CJobQueue::Ended& one : ended) {
            all_.add(one.outcome.result);
            output_.ended(one);
            desk_.end(one.job->identity);
        }
    }

  private:
    struct Torrent {
        CJobQueue::Id id = 0;
        std::unique_ptr<CJobNode> job;
        CJobLog::Listener listener;
    };
    TorrentDesk desk_;
    const ProxyPlan proxy_;
    const bool json_;
    GetOutput& output_;
    StatusOfAll& all_;
    std::deque<Torrent> waiting_;
    std::map<Guid, Torrent> asked_;
};

void on_interrupt(void* context, int count) {
    if (count > 1) end_process(static_cast<int>(Exit::interrupted));
    static_cast<StopSource*>(context)->request();
}

}  // namespace

Exit run_get(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options) {
    GetOutput output(global);
    RunOptions run;
    run.default_agent = u"Vantlow/" + app.version();
    std::vector<std::string> links;
    Complaint complaint = apply_settings(app.settings(), options);
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
    const InterruptWatch watch(on_interrupt, &stop);
    CJobLog dial_log(global.verbose ? [&output](const CLogNode& line) { output.log_line(0, line); }
                                    : CJobLog::Listener());
    if (const Result dialled = dial_as_set(app, dial_log); !dialled.ok()) {
        output.complain(dialled.message());
        return exit_of(dialled);
    }
    run.ssh = ssh_rules(options, output, stop);
    StatusOfAll all;
    {
        CJobQueue queue({connections, app.libraries(), app.settings(), stop, threads});
        JobFactory factory(options, netrc_lookup());
        TorrentsOfGet torrents({connections, app.libraries(), app.settings()}, stop, torrent_proxy(run),
                               global.json, output, all);
        const auto file_jobs = [&](MadeJobs made) {
            if (!made.complaint.empty()) {
                output.complain(made.complaint);
                all.add(Code::invalid_url);
            }
            for (JobRequest& request : made.jobs) {
                const bool is_torrent = request.kind == JobKind::torrent;
                const CJobQueue::Id id = is_torrent ? queue.take_id() : queue.next_id();
                CJobLog::Listener listener;
                if (global.verbose)
                    listener = [&output, id](const CLogNode& line) { output.log_line(id, line); };
                if (is_torrent) {
                    torrents.add(id, std::move(request.job), std::move(listener));
                    continue;
                }
                queue.add(std::move(request.job), run, std::move(listener));
            }
        };
        for (const std::string& link : links) file_jobs(factory.make(link));
        links.clear();
        auto next_refresh = from_now(std::chrono::seconds(1));
        while (((queue.waiting() > 0 || torrents.has_work()) && !stop.requested()) || queue.running() > 0) {
            queue.start_waiting();
            torrents.look();
            for (const CJobQueue::Ended& ended : queue.wait(output.interval())) {
                all.add(ended.outcome.result);
                output.ended(ended);
                if (!ended.outcome.result.ok() || stop.requested()) continue;
                if (auto made = factory.follow(*ended.job, ended.outcome)) file_jobs(std::move(*made));
            }
            output.show(queue);
            if (Clock::now() >= next_refresh) {
                app.settings().refresh();
                next_refresh = from_now(std::chrono::seconds(1));
            }
        }
        for (const CJobQueue::Ended& dropped : queue.drop_waiting()) all.add(dropped.outcome.result);
    }
    output.close();
    const Exit status = stop.requested() ? Exit::interrupted : all.status();
    // A name that the system is still looking up cannot be called back; everything is saved, so the process
    // ends.
    if (!connections.resolver.settle(std::chrono::milliseconds(50))) end_process(static_cast<int>(status));
    return status;
}

}  // namespace vantlow
