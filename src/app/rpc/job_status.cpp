#include "app/rpc/job_status.h"

#include <algorithm>
#include <cmath>

#include "app/process/job_view.h"
#include "base/codes.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "bt/magnet.h"
#include "engine/kinds.h"
#include "store/address.h"

namespace vantlow {
namespace {

// A plain file has no pieces: front ends draw these.
constexpr std::int64_t least_piece = std::int64_t{1024} * 1024;
constexpr std::int64_t most_pieces = 8192;

std::int64_t piece_length_of(std::int64_t size) {
    std::int64_t length = least_piece;
    while (size / length >= most_pieces) length *= 2;
    return length;
}

// Clears the bits of the pieces that a missing range touches.
void clear(std::vector<bool>& bits, std::int64_t start, std::int64_t end, std::int64_t piece_length) {
    if (end <= start) return;
    const auto count = static_cast<std::int64_t>(bits.size());
    const std::int64_t first = std::clamp<std::int64_t>(start / piece_length, 0, count);
    const std::int64_t last = std::clamp<std::int64_t>((end - 1) / piece_length + 1, 0, count);
    std::fill(bits.begin() + first, bits.begin() + last, false);
}

std::vector<bool> bitfield_of(const CJobNode& job, const std::optional<JobProgress>& progress,
                              const rpc::JobStatus& status, const TorrentReport* torrent) {
    if (torrent != nullptr) return bits_of(torrent->good, torrent->piece_count);
    const bool has_begun = progress || !job.segments.empty() || job.state == JobState::finished;
    const bool has_pieces = kind_of(job) != JobKind::torrent && status.length > 0;
    if (!has_pieces || !has_begun) return {};
    std::vector<bool> bits(static_cast<std::size_t>(status.pieces), true);
    if (progress) {
        for (const auto& missing : progress->missing)
            clear(bits, missing.start, missing.end, status.piece_length);
    } else if (job.state != JobState::finished) {
        for (const auto& segment : job.segments)
            clear(bits, segment->start, segment->end, status.piece_length);
    }
    return bits;
}

// The code alone does not tell which refusal of a server it was, nor why a file could not be written; its
// sentence does.
rpc::Reason reason_of_server_error(const std::string& error) {
    const bool is_gone = error.find("404") != std::string::npos || error.find("410") != std::string::npos;
    return is_gone ? rpc::Reason::not_found : rpc::Reason::bad_answer;
}

rpc::Reason reason_of_local_error(const std::string& error) {
    const bool is_full = error.find("No space left") != std::string::npos ||
                         error.find("not enough space") != std::string::npos;
    return is_full ? rpc::Reason::disk_full : rpc::Reason::no_file;
}

rpc::Reason reason_of_lost_connection(const std::string& error) {
    const bool is_late = error.find("Timeout") != std::string::npos ||
                         error.find("took too long") != std::string::npos ||
                         error.find("timed out") != std::string::npos;
    return is_late ? rpc::Reason::time_out : rpc::Reason::network;
}

rpc::Reason reason_of(const CJobNode& job) {
    using rpc::Reason;
    switch (job.result) {
        case Code::ok:
        case Code::finished_empty:
            return Reason::done;
        case Code::cancelled:
            return Reason::file_exists;
        case Code::cannot_resume:
        case Code::range_ignored:
        case Code::size_differs:
        case Code::resource_changed:
            return Reason::no_resume;
        case Code::server_error:
            return reason_of_server_error(job.error);
        case Code::not_resolved:
            return Reason::not_resolved;
        case Code::too_many_redirects:
        case Code::moved:
        case Code::busy:
        case Code::other_content:
            return Reason::bad_answer;
        case Code::credentials_refused:
            return Reason::login;
        case Code::hash_differs:
            return Reason::wrong_hash;
        case Code::transient:
            return reason_of_lost_connection(job.error);
        case Code::tunnel_refused:
        case Code::proxy_refused:
            return Reason::network;
        case Code::local_file:
            return reason_of_local_error(job.error);
        default:
            return Reason::unknown;
    }
}

std::optional<rpc::TorrentStatus> torrent_of(const CJobNode& job, const TorrentReport* known) {
    const auto magnet = parse_magnet(to_utf8(job.address), {});
    if (!magnet) return std::nullopt;
    rpc::TorrentStatus torrent;
    torrent.info_hash = to_hex(magnet->info_hash);
    torrent.name = job.file_name.empty() ? percent_decode(magnet->name) : to_utf8(job.file_name);
    torrent.comment = to_utf8(job.comment);
    if (known != nullptr) {
        if (!known->document.comment.empty()) torrent.comment = known->document.comment;
        torrent.created = known->document.created;
        torrent.is_multi_file = known->is_folder;
        torrent.seeders = static_cast<std::int64_t>(known->seeds);
        torrent.seeds = known->phase == TorrentReport::Phase::sharing;
    }
    for (const std::string& tracker : magnet->trackers) {
        if (!tracker.empty())
            torrent.tiers.push_back({tracker_from_magnet(tracker)});  // an empty one says that there is none
    }
    return torrent;
}

// The name that the file has as far as anybody knows yet: lists show it.
std::u16string expected_name(const CJobNode& job) {
    if (!job.file_name.empty()) return job.file_name;
    const auto target = parse_target(job.address);
    if (!target) return {};
    const std::string path = target->path.substr(0, target->path.find('?'));
    return safe_file_name(to_utf16(percent_decode(path.substr(path.rfind('/') + 1))));
}

std::vector<rpc::FileStatus> files_of_torrent(const CJobNode& job, const std::u16string& path,
                                              const rpc::JobStatus& status, const TorrentReport* torrent) {
    // Only a link is known yet, and no file.
    if (torrent == nullptr || !torrent->is_described)
        return {{"[METADATA]" + torrent_of(job, nullptr).value_or(rpc::TorrentStatus()).name, status.length,
                 status.done}};
    // Before it begins only the folder around it is decided.
    const std::u16string top = name_of(path).empty() ? join_path(folder_of(path), job.file_name) : path;
    std::vector<rpc::FileStatus> files;
    for (const TorrentFile& one : torrent->files) {
        const std::u16string place = torrent->is_folder ? join_path(top, one.name) : top;
        files.push_back({to_utf8(one.path.empty() ? place : one.path), one.size, one.done, one.is_chosen()});
    }
    return files;
}

std::vector<rpc::FileStatus> files_of(const CJobNode& job, const std::u16string& path,
                                      const rpc::JobStatus& status) {
    rpc::FileStatus file{to_utf8(path), status.length, status.done};
    if (name_of(path).empty()) file.path = to_utf8(join_path(folder_of(path), expected_name(job)));
    for (const std::string& address : addresses_of(job))
        file.sources.push_back({address, file.sources.empty()});
    return {std::move(file)};
}

}  // namespace

std::vector<bool> bits_of(std::string_view wire, std::int64_t count) {
    std::vector<bool> bits(wire.empty() ? 0 : static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < bits.size(); ++i) bits[i] = has_bit(wire, i);
    return bits;
}

rpc::Phase phase_of(const CJobNode& job) noexcept {
    switch (job.state) {
        case JobState::waiting:
            return rpc::Phase::waiting;
        case JobState::running:
            return rpc::Phase::active;
        case JobState::stopped:
            return rpc::Phase::paused;
        case JobState::finished:
            return rpc::Phase::complete;
        case JobState::failed:
            return rpc::Phase::failed;
    }
    return rpc::Phase::paused;
}

bool is_stopped(rpc::Phase phase) noexcept {
    return phase == rpc::Phase::failed || phase == rpc::Phase::complete || phase == rpc::Phase::removed;
}

std::string_view word_for(rpc::Phase phase) noexcept {
    switch (phase) {
        case rpc::Phase::active:
            return "aria2.onDownloadStart";
        case rpc::Phase::paused:
            return "aria2.onDownloadPause";
        case rpc::Phase::failed:
            return "aria2.onDownloadError";
        case rpc::Phase::complete:
            return "aria2.onDownloadComplete";
        case rpc::Phase::removed:
            return "aria2.onDownloadStop";
        case rpc::Phase::waiting:
            break;
    }
    return "";
}

unsigned report_parts(unsigned parts) noexcept {
    const unsigned files = (parts & rpc::part::files) != 0 ? torrent_part::files : 0;
    return files | ((parts & rpc::part::bitfield) != 0 ? torrent_part::pieces : 0);
}

std::vector<std::string> addresses_of(const CJobNode& job) {
    std::vector<std::string> addresses = JobView::mirrors_of(job);
    addresses.insert(addresses.begin(), JobView::address_of(job));
    return addresses;
}

rpc::JobStatus status_of(const CJobNode& job, const std::optional<JobProgress>& progress, const LiveJob* live,
                         const TorrentReport* torrent, unsigned parts) {
    rpc::JobStatus status;
    status.job = job.identity;
    status.phase = phase_of(job);
    const std::u16string& path = progress && !progress->path.empty() ? progress->path : job.path;
    status.folder = to_utf8(folder_of(path));
    status.length = std::max<std::int64_t>(progress ? progress->size : JobView::size_of(job), 0);
    status.done = progress ? std::max<std::int64_t>(progress->done, 0) : JobView::done_of(job);
    if (status.length > 0) {
        const bool has_pieces = torrent != nullptr && torrent->is_described;
        status.piece_length = has_pieces ? torrent->piece_length : piece_length_of(status.length);
        status.pieces = has_pieces ? torrent->piece_count : (status.length - 1) / status.piece_length + 1;
    }
    if (progress) status.connections = progress->connections;
    if (progress) status.verified = progress->checked;
    if (live != nullptr) status.down_speed = std::llround(live->speed);
    if (torrent != nullptr) {
        status.uploaded = torrent->sent;
        status.up_speed = std::llround(torrent->sent_rate);
    }
    if (status.phase == rpc::Phase::failed) {
        status.error_code = static_cast<int>(reason_of(job));
        status.error = JobView::error_of(job);
    }
    const bool is_torrent = kind_of(job) == JobKind::torrent;
    if ((parts & rpc::part::torrent) != 0 && is_torrent) status.torrent = torrent_of(job, torrent);
    if ((parts & rpc::part::files) != 0)
        status.files =
            is_torrent ? files_of_torrent(job, path, status, torrent) : files_of(job, path, status);
    if ((parts & rpc::part::bitfield) != 0) status.bitfield = bitfield_of(job, progress, status, torrent);
    return status;
}

}  // namespace vantlow
