#include "app/cli/store/job_json.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cmath>
#include <span>

#include "app/cli/engine_texts.h"
#include "app/cli/report.h"
#include "app/terminal/quantities.h"
#include "base/codes.h"
#include "base/text.h"
#include "bt/peer_store.h"
#include "store/address.h"

namespace vantlow {

using nlohmann::ordered_json;

namespace {

// A moment in seconds since 1970; 0 where there was none yet.
ordered_json iso_or_null(std::int64_t moment) {
    return moment > 0 ? ordered_json(iso_time(moment)) : ordered_json(nullptr);
}

}  // namespace

ordered_json list_json(const JobView& view) {
    const CJobNode& job = view.job;
    const std::int64_t size = view.size();
    ordered_json json{{"id", guid_text(job.identity)},
                      {"address", view.address()},
                      {"category", to_utf8(view.category.name)},
                      {"folder", view.folder()},
                      {"file", view.file()},
                      {"size", size < 0 ? ordered_json(nullptr) : ordered_json(size)},
                      {"done", view.done()},
                      {"state", job_state_name(view.state())},
                      {"connections", job.connections},
                      {"comment", to_utf8(job.comment)},
                      {"referer", to_utf8(without_credentials(job.referer))},
                      {"agent", to_utf8(job.agent)}};
    if (const auto word = view.state_word(); word != job_state_name(view.state())) json["activity"] = word;
    if (const std::string error = view.error(); !error.empty()) json["error"] = error;
    if (view.progress) add_wait(json, *view.progress);
    if (view.move) {
        const std::int64_t moving = view.move->size;
        json["move"] = {{"to", to_utf8(view.move->to)},
                        {"moved", view.move->moved},
                        {"size", moving < 0 ? ordered_json(nullptr) : ordered_json(moving)}};
    }
    if (const Complaint trouble = text_of(view.last_move, guid_text(job.identity)))
        json["moveError"] = *trouble;
    return json;
}

ordered_json show_json(const JobView& view) {
    const CJobNode& job = view.job;
    ordered_json json = list_json(view);
    json["path"] = to_utf8(view.path());
    json["created"] = iso_or_null(job.created);
    json["finished"] = iso_or_null(job.finished);
    json["result"] = plain_result(job.result);
    if (!json.contains("error")) json["error"] = nullptr;
    json["startMode"] = job.start_mode;
    json["mirrors"] = JobView::mirrors_of(job);
    ordered_json segments = ordered_json::array();
    if (view.progress) {
        for (const auto& missing : view.progress->missing) {
            segments.push_back({{"start", missing.start}, {"end", missing.end}});
        }
    } else {
        for (const auto& segment : job.segments) {
            segments.push_back({{"start", segment->start}, {"end", segment->end}});
        }
    }
    json["segments"] = std::move(segments);
    return json;
}

ordered_json peers_json(const TorrentReport& report) {
    ordered_json peers = ordered_json::array();
    for (const TorrentPeer& peer : report.peers) {
        peers.push_back({{"address", peer_text(peer.address)},
                         {"id", to_hex(std::as_bytes(std::span(peer.id)))},
                         {"client", peer.client},
                         {"incoming", peer.is_incoming},
                         {"encrypted", peer.is_encrypted},
                         {"utp", peer.is_over_datagrams},
                         {"seed", peer.is_seed},
                         {"interesting", peer.is_interesting},
                         {"choking", peer.chokes_us},
                         {"interested", peer.is_interested},
                         {"choked", peer.is_choked},
                         {"progress", peer.progress},
                         {"down", std::llround(peer.received_rate)},
                         {"up", std::llround(peer.sent_rate)},
                         {"received", peer.received},
                         {"sent", peer.sent}});
    }
    return peers;
}

ordered_json trackers_json(const TorrentReport& report) {
    const auto count = [](const std::optional<SwarmCounts>& counts, std::int64_t SwarmCounts::*which) {
        return counts ? ordered_json((*counts).*which) : ordered_json(nullptr);
    };
    ordered_json trackers = ordered_json::array();
    for (const TorrentTracker& tracker : report.trackers) {
        const auto left = tracker.next.value_or(Clock::time_point{}) - Clock::now();
        const auto next = std::chrono::system_clock::now() +
                          std::chrono::duration_cast<std::chrono::system_clock::duration>(left);
        trackers.push_back(
            {{"tracker", tracker.address},
             {"tier", tracker.tier},
             {"listed", tracker.is_listed},
             {"state", tracker_state_name(tracker.state)},
             {"peers", tracker.peers},
             {"seeders", count(tracker.counts, &SwarmCounts::seeders)},
             {"leechers", count(tracker.counts, &SwarmCounts::leechers)},
             {"next", tracker.next ? ordered_json(iso_time(std::chrono::system_clock::to_time_t(next)))
                                   : ordered_json(nullptr)},
             {"failure", tracker.failure.empty() ? ordered_json(nullptr) : ordered_json(tracker.failure)}});
    }
    return trackers;
}

ordered_json files_json(const TorrentReport& report) {
    ordered_json files = ordered_json::array();
    for (const TorrentFile& file : report.files) {
        files.push_back(
            {{"number", files.size() + 1},
             {"name", to_utf8(file.name)},
             {"path", file.path.empty() ? ordered_json(nullptr) : ordered_json(to_utf8(file.path))},
             {"size", file.size},
             {"done", file.done},
             {"chosen", file.is_chosen()},
             {"priority", file_priority_name(file.priority)}});
    }
    return files;
}

ordered_json pieces_json(const TorrentReport& report) {
    return {{"count", report.piece_count},
            {"length", report.piece_length},
            {"good", report.good_pieces},
            {"bitfield", to_hex(std::as_bytes(std::span(report.good)))},
            {"begun", to_hex(std::as_bytes(std::span(report.begun)))},
            {"sequential", report.is_sequential},
            {"endsFirst", report.has_ends_first},
            {"availability", report.availability}};
}

void add_torrent(ordered_json& json, const TorrentReport& report) {
    const bool is_sized = report.size > 0;
    json["infoHash"] = to_hex(report.info_hash);
    const DocumentFacts& document = report.document;
    json["document"] = {
        {"comment", document.comment},
        {"createdBy", document.created_by},
        {"created", document.created > 0 ? ordered_json(iso_time(document.created)) : ordered_json(nullptr)}};
    json["phase"] = torrent_phase_name(report.phase);
    json["progress"] = is_sized ? static_cast<double>(report.done) / static_cast<double>(report.size) : 0.0;
    json["received"] = report.received;
    json["sent"] = report.sent;
    json["ratio"] = report.ratio();
    json["seeds"] = report.seeds;
    json["blocked"] = report.blocked;
    json["port"] = report.port != 0 ? ordered_json(report.port) : ordered_json(nullptr);
    json["portMapping"] = {{"open", report.is_passed_on},
                           {"text", report.port_news},
                           {"ipv6", {{"open", report.is_let_in}, {"text", report.firewall_news}}}};
    json["peers"] = peers_json(report);
    json["trackers"] = trackers_json(report);
    json["pieces"] = pieces_json(report);
    json["files"] = files_json(report);
}

}  // namespace vantlow
