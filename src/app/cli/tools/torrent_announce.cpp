// `vantlow torrent announce`.
#include <algorithm>
#include <functional>
#include <mutex>

#include "app/cli/engine_texts.h"
#include "app/cli/job_options.h"
#include "app/cli/report.h"
#include "app/cli/tools/tools.h"
#include "app/process/application.h"
#include "app/process/ending.h"
#include "base/text.h"
#include "bt/announce_thread.h"
#include "bt/peer_probe.h"
#include "bt/torrent_settings.h"
#include "platform/console.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "store/address.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

// The missing bytes of a torrent whose size a magnet link does not name: more than none, so that trackers
// name seeders too.
constexpr std::int64_t left_unknown = 16384;

AnnounceEvent event_of(const std::string& name) noexcept {
    for (const auto event : {AnnounceEvent::started, AnnounceEvent::completed, AnnounceEvent::stopped}) {
        if (event_name(event) == name) return event;
    }
    return AnnounceEvent::none;
}

void prepare(const AnnounceOptions& options, const TorrentFacts& facts, TorrentIdentity& job) {
    job.info_hash = facts.meta.info_hash;
    Guid guid;
    unsigned char bytes[16];
    random_guid(bytes);
    std::copy(std::begin(bytes), std::end(bytes), guid.bytes.begin());
    job.peer_id = make_peer_id(guid);
    job.port = options.port;
    const std::int64_t total =
        facts.is_magnet ? left_unknown : facts.meta.total_size().value_or(left_unknown);
    const bool complete = options.event == "completed";
    job.left = complete ? 0 : total;
    job.downloaded = complete ? total : 0;
}

// Chooses the proxy of --proxy, else the program's own, and the interface of the settings.
Complaint choose_way(CFerrywellApp& app, const AnnounceOptions& options, TorrentIdentity& job) {
    if (Complaint complaint = check_proxy(options.proxy)) return complaint;
    CJobNode node;
    node.proxy = to_utf16(options.proxy);
    ProxyFault fault;
    job.proxy = torrent_proxy(run_options_of(node, app.settings(), app.data_folder(), fault));
    job.way = torrent_way(app.settings());
    return text_of(fault);
}

// Lists the trackers to ask, each once.
std::vector<std::string> trackers_of(const TorrentFacts& facts) {
    std::vector<std::string> trackers;
    for (const std::string& raw : facts.meta.trackers) {
        std::string url = facts.is_magnet ? tracker_from_magnet(raw) : raw;
        const bool known = std::find(trackers.begin(), trackers.end(), url) != trackers.end();
        if (!known && !normalise_tracker(url).empty()) trackers.push_back(std::move(url));
    }
    return trackers;
}

ordered_json json_of(const std::string& tracker, const AnnounceReport& report) {
    ordered_json json{
        {"tracker", tracker},
        {"ok", report.ok},
        {"interval", report.ok ? ordered_json(report.interval) : ordered_json(nullptr)},
        {"peers", ordered_json::array()},
        {"failure", report.failure.empty() ? ordered_json(nullptr) : ordered_json(report.failure)}};
    for (const SocketAddress& peer : report.peers) json["peers"].push_back(peer_text(peer));
    return json;
}

void print_report(const std::string& tracker, const AnnounceReport& report) {
    if (!report.ok) {
        complain(tracker + ": " + report.failure);
        return;
    }
    say(tracker + ": " + std::to_string(report.peers.size()) + " peers, next announce in " +
        std::to_string(report.interval) + " s" + (report.warning.empty() ? "" : " (" + report.warning + ")"));
    for (const SocketAddress& peer : report.peers) say("  " + peer_text(peer));
}

// Asks all trackers at once, so that the wait is that for the slowest one.
std::vector<AnnounceReport> ask_all(const AnnounceServices& services, TorrentIdentity& job,
                                    const std::vector<std::string>& trackers, AnnounceEvent event,
                                    bool verbose, StopSource& stop) {
    std::vector<AnnounceReport> reports(trackers.size());
    ThreadPool pool;
    std::vector<ThreadPool::Running> threads(trackers.size());
    for (std::size_t i = 0; i < trackers.size(); ++i) {
        const std::function<void()> ask = [&, i] {
            ConsoleLog log(std::to_string(i + 1), verbose);
            CBTAnnounceThread one(services, job, trackers[i], event, log, stop);
            // Ctrl-C ends also an announce that says goodbye.
            const StopCallback on_stop(stop, [&one] { one.abandon(); });
            one.announce(trackers[i], event);
            reports[i] = one.report();
        };
        if (!pool.start(threads[i], ask).ok()) ask();
    }
    threads.clear();
    return reports;
}

ordered_json json_of(const ProbeReport& report) {
    ordered_json json{
        {"ok", report.ok},
        {"encryption", report.encryption},
        {"peerId", report.peer_id},
        {"reserved", report.reserved},
        {"messages", report.messages},
        {"version", nullptr},
        {"metadataSize", nullptr},
        {"metadataNumber", nullptr},
        {"port", nullptr},
        {"failure", report.failure.empty() ? ordered_json(nullptr) : ordered_json(report.failure)}};
    if (const auto& extension = report.extension) {
        json["version"] = to_utf8(extension->version);
        if (extension->metadata_size) json["metadataSize"] = *extension->metadata_size;
        if (extension->metadata_number) json["metadataNumber"] = *extension->metadata_number;
        if (extension->port) json["port"] = *extension->port;
    }
    return json;
}

void print_probe(const char* mode, const ProbeReport& report) {
    std::string text = std::string(mode) + ": ";
    if (report.ok) {
        text += "encryption " + report.encryption + ", peer id " + report.peer_id;
        if (report.extension) text += ", " + to_utf8(report.extension->version);
        if (report.extension && report.extension->metadata_size)
            text += ", metadata of " + std::to_string(*report.extension->metadata_size) + " bytes";
        for (const std::string& name : report.messages) text += ", " + name;
    }
    if (!report.failure.empty()) text += (report.ok ? "; " : "") + report.failure;
    say(text);
}

Exit probe(const AnnounceServices& services, const TorrentIdentity& job, const GlobalOptions& global,
           const AnnounceOptions& options, const StopSource& stop) {
    const auto target = parse_target(to_utf16("http://" + options.probe));
    if (!target || !target->explicit_port) return complain("--probe takes HOST:PORT.", Exit::usage);
    ConsoleLog log("peer", global.verbose);
    ordered_json json{{"peer", options.probe}};
    bool any = false;
    for (const auto& [mode, name] :
         {std::pair{ProbeMode::encrypted, "encrypted"}, {ProbeMode::plain, "plain"}}) {
        const ProbeReport report = probe_peer(services, job, target->host, target->port, mode, log, stop);
        any = any || report.ok;
        json[name] = json_of(report);
        if (!global.json) print_probe(name, report);
    }
    if (global.json) print_answer(global, json, {});
    return any ? Exit::done : Exit::failed;
}

Exit announce(const AnnounceServices& services, TorrentIdentity& job, const TorrentFacts& facts,
              const GlobalOptions& global, const AnnounceOptions& options, StopSource& stop) {
    const std::vector<std::string> trackers = trackers_of(facts);
    if (trackers.empty()) return complain("The torrent names no tracker.");
    const auto reports = ask_all(services, job, trackers, event_of(options.event), global.verbose, stop);
    ordered_json json = ordered_json::array();
    Exit status = Exit::done;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        if (!reports[i].ok) status = Exit::failed;
        json.push_back(json_of(trackers[i], reports[i]));
        if (!global.json) print_report(trackers[i], reports[i]);
    }
    if (global.json) print_answer(global, json, {});
    return status;
}

}  // namespace

Exit run_announce(CFerrywellApp& app, const GlobalOptions& global, const AnnounceOptions& options) {
    std::string complaint;
    const auto facts = read_torrent(options.torrent, app.settings(), complaint);
    if (!facts) return complain(complaint);
    TorrentIdentity job;
    prepare(options, *facts, job);
    if (const Complaint wrong = choose_way(app, options, job)) return complain(*wrong, Exit::usage);
    add_nodes(facts->meta, app.libraries().btdht);
    const InterruptWatch watch(stop_at_interrupt, &app.stop());
    ConnectionServices connections(&app.libraries().secur);
    const AnnounceServices services{connections, app.libraries(), app.settings()};
    Exit status = options.probe.empty() ? announce(services, job, *facts, global, options, app.stop())
                                        : probe(services, job, global, options, app.stop());
    if (app.stop().requested()) status = Exit::interrupted;
    return leave(connections.resolver, status);
}

}  // namespace vantlow
