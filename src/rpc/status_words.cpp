#include "rpc/status_words.h"

#include <algorithm>
#include <array>

#include "base/codes.h"

namespace vantlow::rpc {
namespace {

std::string text_of(std::int64_t number) {
    return std::to_string(number);
}

std::string text_of(bool yes) {
    return yes ? "true" : "false";
}

// Two digits for eight bits, the first bit the highest; missing ones are 0.
std::string hex_of(const std::vector<bool>& bits) {
    std::vector<std::byte> bytes((bits.size() + 7) / 8);
    for (std::size_t i = 0; i < bits.size(); ++i) {
        if (bits[i]) bytes[i / 8] |= std::byte{0x80} >> (i % 8);
    }
    return to_hex(bytes);
}

bool is_stopped(Phase phase) {
    return phase == Phase::failed || phase == Phase::complete || phase == Phase::removed;
}

std::string_view name_of(Phase phase) {
    switch (phase) {
        case Phase::active:
            return "active";
        case Phase::waiting:
            return "waiting";
        case Phase::paused:
            return "paused";
        case Phase::failed:
            return "error";
        case Phase::complete:
            return "complete";
        case Phase::removed:
            return "removed";
    }
    return "";
}

// Only live downloads move.
std::string live(const JobStatus& status, std::int64_t number) {
    return text_of(is_stopped(status.phase) ? 0 : number);
}

Json json_of(const TorrentStatus& torrent) {
    Json json{{"announceList", torrent.tiers}};
    if (torrent.is_described) {
        json["mode"] = torrent.is_multi_file ? "multi" : "single";
        json["info"] = {{"name", torrent.name}};
    }
    if (!torrent.comment.empty()) json["comment"] = torrent.comment;
    if (torrent.created > 0) json["creationDate"] = torrent.created;
    return json;
}

/// A key, the part of the status that it needs, and its value; a discarded one is left out.
struct Key {
    std::string_view name;
    unsigned part;
    Json (*value)(const JobStatus& status);
};

Json left_out() {
    return Json(Json::value_t::discarded);
}

constexpr std::array keys_of_status{
    Key{"gid", 0, [](const JobStatus& s) { return Json(gid_of(s.job)); }},
    Key{"status", 0, [](const JobStatus& s) { return Json(name_of(s.phase)); }},
    Key{"totalLength", 0, [](const JobStatus& s) { return Json(text_of(s.length)); }},
    Key{"completedLength", 0, [](const JobStatus& s) { return Json(text_of(s.done)); }},
    Key{"uploadLength", part::torrent, [](const JobStatus& s) { return Json(text_of(s.uploaded)); }},
    Key{"bitfield", part::bitfield,
        [](const JobStatus& s) { return s.bitfield.empty() ? left_out() : Json(hex_of(s.bitfield)); }},
    Key{"downloadSpeed", 0, [](const JobStatus& s) { return Json(live(s, s.down_speed)); }},
    Key{"uploadSpeed", part::torrent, [](const JobStatus& s) { return Json(live(s, s.up_speed)); }},
    Key{"infoHash", part::torrent,
        [](const JobStatus& s) { return s.torrent ? Json(s.torrent->info_hash) : left_out(); }},
    Key{"numSeeders", part::torrent,
        [](const JobStatus& s) { return s.torrent ? Json(live(s, s.torrent->seeders)) : left_out(); }},
    Key{"seeder", part::torrent,
        [](const JobStatus& s) {
            return s.torrent && !is_stopped(s.phase) ? Json(text_of(s.torrent->seeds)) : left_out();
        }},
    Key{"pieceLength", 0, [](const JobStatus& s) { return Json(text_of(s.piece_length)); }},
    Key{"numPieces", 0, [](const JobStatus& s) { return Json(text_of(s.pieces)); }},
    Key{"connections", 0, [](const JobStatus& s) { return Json(live(s, s.connections)); }},
    Key{"errorCode", 0,
        [](const JobStatus& s) {
            return is_stopped(s.phase) ? Json(text_of(std::int64_t{s.error_code})) : left_out();
        }},
    Key{"errorMessage", 0,
        [](const JobStatus& s) { return is_stopped(s.phase) ? Json(s.error) : left_out(); }},
    Key{"followedBy", 0,
        [](const JobStatus& s) {
            Json gids = Json::array();
            for (const Guid& job : s.followed_by) gids.push_back(gid_of(job));
            return gids.empty() ? left_out() : gids;
        }},
    Key{"following", 0,
        [](const JobStatus& s) { return s.following ? Json(gid_of(*s.following)) : left_out(); }},
    Key{"dir", 0, [](const JobStatus& s) { return Json(s.folder); }},
    Key{"files", part::files, [](const JobStatus& s) { return rpc::json_of(s.files); }},
    Key{"bittorrent", part::torrent,
        [](const JobStatus& s) { return s.torrent ? json_of(*s.torrent) : left_out(); }},
};

bool is_wanted(const std::vector<std::string>& keys, std::string_view name) {
    return keys.empty() || std::ranges::find(keys, name) != keys.end();
}

}  // namespace

std::string gid_of(const Guid& job) {
    return guid_digits(guid_text(job)).value_or("").substr(0, 16);
}

unsigned parts_for(const std::vector<std::string>& keys) {
    unsigned parts = 0;
    for (const Key& key : keys_of_status) {
        if (is_wanted(keys, key.name)) parts |= key.part;
    }
    return parts;
}

Json json_of(const JobStatus& status, const std::vector<std::string>& keys) {
    Json json = Json::object();
    for (const Key& key : keys_of_status) {
        if (!is_wanted(keys, key.name)) continue;
        Json value = key.value(status);
        if (!value.is_discarded()) json[std::string(key.name)] = std::move(value);
    }
    // These two are told whatever was asked for, and only while pieces are checked.
    if (status.verified) {
        json["verifiedLength"] = text_of(*status.verified);
        json["verifyIntegrityPending"] = "true";
    }
    return json;
}

Json json_of(const std::vector<Source>& sources) {
    Json json = Json::array();
    for (const Source& source : sources) {
        Json& one = json.emplace_back(Json::object());
        one["status"] = source.is_used ? "used" : "waiting";
        one["uri"] = source.address;
    }
    return json;
}

Json json_of(const std::vector<FileStatus>& files) {
    Json json = Json::array();
    for (const FileStatus& file : files) {
        Json& one = json.emplace_back(Json::object());
        one["index"] = std::to_string(json.size());
        one["path"] = file.path;
        one["length"] = text_of(file.length);
        one["completedLength"] = text_of(file.done);
        one["selected"] = text_of(file.is_selected);
        one["uris"] = json_of(file.sources);
    }
    return json;
}

Json json_of(const Peer& peer) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string id;
    for (const char c : peer.id) {
        const auto byte = static_cast<unsigned char>(c);
        id += '%';
        id += digits[byte >> 4U];
        id += digits[byte & 15U];
    }
    return {{"peerId", id},
            {"ip", peer.address},
            {"port", text_of(peer.port)},
            {"bitfield", hex_of(peer.bitfield)},
            {"amChoking", text_of(peer.we_choke)},
            {"peerChoking", text_of(peer.it_chokes)},
            {"downloadSpeed", text_of(peer.down_speed)},
            {"uploadSpeed", text_of(peer.up_speed)},
            {"seeder", text_of(peer.seeds)}};
}

Json json_of(const Totals& totals) {
    const auto count = [](std::size_t number) { return std::to_string(number); };
    return {{"downloadSpeed", text_of(totals.down_speed)}, {"uploadSpeed", text_of(totals.up_speed)},
            {"numActive", count(totals.active)},           {"numWaiting", count(totals.waiting)},
            {"numStopped", count(totals.stopped)},         {"numStoppedTotal", count(totals.stopped_ever)}};
}

}  // namespace vantlow::rpc
