#include "app/rpc/engine_downloads.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "app/rpc/job_requests.h"
#include "app/rpc/job_status.h"
#include "base/codes.h"
#include "base/text.h"
#include "bt/torrent_settings.h"
#include "engine/kinds.h"

namespace vantlow {
namespace {

using rpc::Group;
using rpc::Phase;
using rpc::Problem;

// As many stopped downloads as front ends keep, too.
constexpr std::size_t most_results = 1000;
constexpr std::size_t most_torrents = 200;
constexpr std::size_t gid_digits = 16;

std::string hex_of(const Guid& guid) {
    return to_hex(std::as_bytes(std::span(guid.bytes)));
}

// Turns the status of a magnet link's job to that of its description, of which `info` is there.
void make_description(const Guid& description, std::string_view info, rpc::JobStatus& status) {
    constexpr std::int64_t piece = 16384;  // it travels in these (BEP 9)
    status.job = description;
    status.length = status.done = std::ssize(info);
    status.piece_length = piece;
    status.pieces = (status.length + piece - 1) / piece;
    status.bitfield.assign(static_cast<std::size_t>(status.pieces), true);
    if (!status.torrent) return;
    status.torrent->is_described = false;
    const bool is_named = !status.torrent->name.empty();
    status.files = {{"[METADATA]" + (is_named ? status.torrent->name : status.torrent->info_hash),
                     status.length, status.done}};
}

}  // namespace

EngineDownloads::EngineDownloads(Engine& engine, Options options)
    : engine_(engine),
      options_(std::move(options)),
      session_((hex_of(new_guid()) + hex_of(new_guid())).substr(0, 40)),
      live_(engine) {
    for (const CJobNode* job : engine_.jobs_below(nullptr)) {
        known_[job->identity] = phase_now(*job);
        meet(*job);
    }
    engine_.add_listener(*this);
}

EngineDownloads::~EngineDownloads() {
    engine_.remove_listener(*this);
}

// A torrent that is shared still has its session, and front ends count it among the active ones.
Phase EngineDownloads::phase_now(const CJobNode& job) const {
    return engine_.is_sharing(job.identity) ? Phase::active : phase_of(job);
}

// The record of a job that counts: one that only waits for its session's end to be removed is a result.
const CJobNode* EngineDownloads::record(const Guid& shown) const {
    const Guid job = awaited_.behind(shown);
    return has_left(job) ? nullptr : engine_.find(job);
}

// A removed download is gone for front ends at once, also while its session still ends.
bool EngineDownloads::has_left(const Guid& job) const {
    return results_.contains(job) || purged_.contains(job);
}

const EngineDownloads::Lists& EngineDownloads::lists() {
    if (lists_.made && lists_.revision == engine_.revision() && lists_.results == results_revision_)
        return lists_;
    lists_ = {engine_.revision(), results_revision_, true, {}, {}, {}};
    std::vector<const CJobNode*> waiting;
    std::vector<std::pair<std::int64_t, Guid>> stopped;
    for (const CJobNode* job : engine_.jobs_below(nullptr)) {
        if (has_left(job->identity)) continue;
        const Phase phase = phase_now(*job);
        const Guid shown = awaited_.shown(job->identity);
        if (phase == Phase::active) lists_.active.push_back(shown);
        if (phase == Phase::waiting || phase == Phase::paused) waiting.push_back(job);
        if (is_stopped(phase)) stopped.emplace_back(std::max(job->finished, job->created), shown);
    }
    std::ranges::stable_sort(waiting, {}, [](const CJobNode* job) {
        return std::pair(job->state != JobState::waiting, job->order);
    });
    std::ranges::stable_sort(stopped, {}, &std::pair<std::int64_t, Guid>::first);
    for (const CJobNode* job : waiting) lists_.waiting.push_back(awaited_.shown(job->identity));
    for (const auto& [time, job] : stopped) lists_.stopped.push_back(job);
    lists_.stopped.insert(lists_.stopped.end(), result_order_.begin(), result_order_.end());
    return lists_;
}

const std::vector<Guid>& EngineDownloads::list(Group group) {
    const Lists& all = lists();
    return group == Group::active ? all.active : group == Group::waiting ? all.waiting : all.stopped;
}

bool EngineDownloads::has(const Guid& job) {
    return record(job) != nullptr || results_.contains(job);
}

std::vector<Guid> EngineDownloads::find(std::string_view digits) {
    std::vector<Guid> found;
    for (const CJobNode* job : engine_.find_by_digits(digits)) {
        if (!purged_.contains(job->identity)) found.push_back(awaited_.shown(job->identity));
    }
    if (found.size() == 1 && digits.size() >= gid_digits) return found;
    for (const Guid& description : awaited_.find(digits)) {
        const bool is_new = std::ranges::find(found, description) == found.end();
        if (is_new && record(description) != nullptr) found.push_back(description);
    }
    for (const Guid& job : result_order_) {
        const bool fits = guid_digits(guid_text(job)).value_or("").starts_with(digits);
        if (fits && std::ranges::find(found, job) == found.end()) found.push_back(job);
    }
    // Results of descriptions are kept for a run alone: in the next one who knows a torrent by its
    // description finds the torrent.
    if (found.empty() && digits.size() == gid_digits) {
        const CJobNode* const torrent = torrent_of_description(engine_, digits);
        if (torrent != nullptr && !following_.contains(torrent->identity) && !has_left(torrent->identity))
            found.push_back(torrent->identity);
    }
    return found;
}

Phase EngineDownloads::phase(const Guid& job) {
    if (const CJobNode* const found = record(job)) return phase_now(*found);
    return results_.at(job).phase;
}

const TorrentReport* EngineDownloads::torrent(const CJobNode& job, unsigned parts) {
    if (kind_of(job) != JobKind::torrent) return nullptr;
    const unsigned wanted = report_parts(parts);
    const auto known = torrents_.find(job.identity);
    // The facts of one that runs move on without a change of its record.
    const bool holds = parts == 0 || !engine_.is_running(job.identity);
    if (holds && known != torrents_.end() && (wanted & ~known->second.parts) == 0)
        return &known->second.report;
    auto report = engine_.torrent_report(job.identity, wanted);
    if (!report) return nullptr;
    if (torrents_.size() >= most_torrents && known == torrents_.end()) torrents_.clear();
    Known& kept = torrents_[job.identity];
    kept = {wanted, *std::move(report)};
    return &kept.report;
}

rpc::JobStatus EngineDownloads::status(const Guid& shown, unsigned parts) {
    const CJobNode* const found = record(shown);
    if (found == nullptr) return results_.at(shown);
    const Guid job = found->identity;
    if (awaited_.contains(job)) parts |= rpc::part::torrent;  // its only file is named after it
    rpc::JobStatus status =
        status_of(*found, engine_.progress(job), live_.find(*found), torrent(*found, parts), parts);
    status.phase = phase_now(*found);
    if (const auto document = following_.find(job); document != following_.end())
        status.following = document->second;
    if (const auto jobs = followed_by_.find(job); jobs != followed_by_.end())
        status.followed_by = jobs->second;
    if (awaited_.contains(job)) make_description(description_of(job), {}, status);
    return status;
}

rpc::JobOptions EngineDownloads::options(const Guid& job) {
    const CJobNode* const found = record(job);
    if (found != nullptr) return options_of(*found);
    rpc::JobOptions options;
    options.folder = results_.at(job).folder;
    return options;
}

std::vector<std::string> EngineDownloads::servers(const Guid& job) {
    std::vector<std::string> servers;
    for (const SessionConnection& connection : engine_.connections(awaited_.behind(job))) {
        if (connection.works) servers.push_back(connection.peer);
    }
    return servers;
}

std::vector<rpc::Peer> EngineDownloads::peers(const Guid& job) {
    const auto report = engine_.torrent_report(awaited_.behind(job), torrent_part::peers);
    std::vector<rpc::Peer> peers;
    if (!report) return peers;
    for (const TorrentPeer& one : report->peers) {
        rpc::Peer peer;
        peer.id = one.id;
        peer.address = one.address.host();
        peer.port = one.is_incoming ? 0 : one.address.port();
        peer.bitfield = bits_of(one.pieces, report->piece_count);
        peer.we_choke = one.is_choked;
        peer.it_chokes = one.chokes_us;
        peer.down_speed = std::llround(one.received_rate);
        peer.up_speed = std::llround(one.sent_rate);
        peer.seeds = one.is_seed;
        peers.push_back(std::move(peer));
    }
    return peers;
}

std::u16string EngineDownloads::default_folder() const {
    return defaults_.folder ? to_utf16(*defaults_.folder) : engine_.first_category()->folder;
}

rpc::GlobalOptions EngineDownloads::global_options() {
    const Settings& settings = options_.settings;
    rpc::GlobalOptions options;
    options.job.connections = JobDraft().connections;
    options.job.per_server = settings.number(setting::max_per_server);
    options.job.agent = to_utf8(options_.agent);
    options.job.take(defaults_);
    options.job.folder = to_utf8(default_folder());
    options.jobs_at_once = settings.number(setting::max_jobs);
    options.down_limit = settings.flag(setting::limit) ? settings.number(setting::speed_limit) : 0;
    options.up_limit = settings.number(setting::upload_limit);
    options.split_size = settings.number(setting::split_size);
    options.most_peers = settings.number(setting::most_peers);
    return options;
}

rpc::Totals EngineDownloads::totals() {
    const Lists& all = lists();
    return {std::llround(live_.down()), std::llround(live_.up()),
            all.active.size(),          all.waiting.size(),
            all.stopped.size(),         std::max(stopped_ever_, all.stopped.size())};
}

void EngineDownloads::forget(const Guid& job) {
    awaited_.remove(job);
    following_.erase(job);
    followed_by_.erase(job);
    torrents_.erase(job);
    told_data_.erase(job);
}

// ---- News: what front ends are told unasked.

void EngineDownloads::keep_result(rpc::JobStatus status) {
    const Guid job = status.job;
    if (results_.insert_or_assign(job, std::move(status)).second) result_order_.push_back(job);
    if (result_order_.size() > most_results) {
        results_.erase(result_order_.front());
        result_order_.pop_front();
    }
    ++results_revision_;
}

// All of a torrent is there; it ends when it was shared long enough.
void EngineDownloads::tell_data(const Guid& job) {
    if (told_data_.insert(job).second) tell("aria2.onBtDownloadComplete", job);
}

// A running job does not report that its description has come.
void EngineDownloads::look() {
    live_.look(std::chrono::steady_clock::now());
    for (const auto& [job, figures] : live_.all()) {
        if (awaited_.contains(job)) look_at(job);
    }
}

void EngineDownloads::meet(const CJobNode& job) {
    if (awaits_description(engine_, job)) awaited_.add(job.identity);
}

// Where the description has come it is a result from now on, and its torrent begins as a download of its own.
void EngineDownloads::look_at_description(const Guid& job) {
    const CJobNode* const found = awaited_.contains(job) ? engine_.find(job) : nullptr;
    if (found == nullptr || awaits_description(engine_, *found)) return;
    const Guid description = description_of(job);
    rpc::JobStatus last = status(description, rpc::part::all);
    make_description(description, engine_.torrent_info(*found), last);
    last.phase = Phase::complete;
    last.followed_by = {job};
    const Phase before = std::exchange(known_[job], Phase::waiting);
    if (before != Phase::active) tell(word_for(Phase::active), job);
    tell(word_for(Phase::complete), job);
    ++stopped_ever_;
    awaited_.remove(job);
    torrents_.erase(job);
    following_[job] = description;
    keep_result(std::move(last));
}

// A download that was quick may have ended before anybody heard of its beginning, also where it has ended the
// same way before. One that comes as an ended one (from a list, or back from the bin) did nothing of it now.
void EngineDownloads::note(const Guid& job, Phase now, bool has_run) {
    if (const CJobNode* const found = engine_.find(job); found != nullptr && !known_.contains(job))
        meet(*found);
    look_at_description(job);
    const auto [known, is_new] = known_.try_emplace(job, Phase::waiting);
    if (known->second == Phase::removed) return;
    Phase before = std::exchange(known->second, now);
    if (has_run && before == now && now != Phase::active) before = Phase::waiting;
    if (before == now) return;
    const bool has_ended = now == Phase::complete || now == Phase::failed;
    if (is_new && !has_run && (has_ended || now == Phase::paused)) return;
    if (has_ended) ++stopped_ever_;
    if ((has_run || has_ended) && before != Phase::active) tell(word_for(Phase::active), job);
    if (const CJobNode* const found = engine_.find(job);
        found != nullptr && kind_of(*found) == JobKind::torrent) {
        if (now == Phase::complete) tell_data(job);
        if (now == Phase::waiting) told_data_.erase(job);
    }
    if (now != Phase::waiting) tell(word_for(now), job);
}

void EngineDownloads::data_complete(const Guid& job) {
    if (awaited_.contains(job)) note(job, Phase::active, false);
    tell_data(job);
}

void EngineDownloads::changed(const Changes& changes) {
    if (changes.everything) {
        torrents_.clear();
        std::vector<Guid> all;
        for (const auto& [job, phase] : known_) all.push_back(job);
        for (const CJobNode* job : engine_.jobs_below(nullptr)) {
            if (!known_.contains(job->identity)) all.push_back(job->identity);
        }
        for (const Guid& job : all) look_at(job);
        return;
    }
    for (const JobChange& change : changes.jobs) {
        torrents_.erase(change.job);
        look_at(change.job);
    }
}

// Tells what became of a job since it was looked at last.
void EngineDownloads::look_at(const Guid& job) {
    if (const CJobNode* const found = engine_.find(job)) {
        if (!has_left(job)) note(job, phase_now(*found), false);
        return;
    }
    purged_.erase(job);
    const auto known = known_.extract(job);
    if (!known.empty() && !is_stopped(known.mapped())) tell(word_for(Phase::removed), job);
    forget(job);
}

void EngineDownloads::ended(const JobEnd& end) {
    const Guid& job = end.job->identity;
    if (has_left(job)) return;
    if (end.gave_way) {
        rpc::JobStatus last = status_of(*end.job, std::nullopt, nullptr, nullptr, rpc::part::all);
        last.phase = Phase::complete;
        note(job, Phase::complete, true);
        keep_result(std::move(last));
        return;
    }
    if (const CJobNode* const found = engine_.find(job)) note(job, phase_now(*found), true);
}

void EngineDownloads::followed(const Followed& followed) {
    std::vector<Guid> shown;
    for (const Guid& job : followed.jobs) {
        following_[job] = followed.document;
        if (const CJobNode* const found = engine_.find(job)) meet(*found);
        shown.push_back(awaited_.shown(job));
    }
    if (const auto document = results_.find(followed.document); document != results_.end()) {
        document->second.followed_by = std::move(shown);
        ++results_revision_;
    } else if (!shown.empty()) {
        followed_by_[followed.document] = std::move(shown);
    }
}

}  // namespace vantlow
