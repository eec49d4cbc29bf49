#include "app/rpc/engine_downloads.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "app/cli/engine_texts.h"
#include "app/process/queue_order.h"
#include "app/rpc/job_requests.h"
#include "base/codes.h"
#include "base/text.h"
#include "bt/announce.h"
#include "bt/magnet.h"
#include "bt/torrent_settings.h"
#include "engine/kinds.h"
#include "platform/file.h"
#include "store/address.h"

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

bool is_stopped(Phase phase) {
    return phase == Phase::failed || phase == Phase::complete || phase == Phase::removed;
}

std::string_view word_for(Phase phase) {
    switch (phase) {
        case Phase::active:
            return "aria2.onDownloadStart";
        case Phase::paused:
            return "aria2.onDownloadPause";
        case Phase::failed:
            return "aria2.onDownloadError";
        case Phase::complete:
            return "aria2.onDownloadComplete";
        case Phase::removed:
            return "aria2.onDownloadStop";
        case Phase::waiting:
            break;
    }
    return "";
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

Problem problem_of(const Done& done, const Guid& job) {
    return text_of(done, rpc::gid_of(job));
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

// ---- Looking.

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

// ---- Doing.

rpc::Downloads::Added EngineDownloads::result_of(vantlow::Added added) {
    Added result{std::move(added.jobs), {}};
    for (const DraftFault& fault : added.faults) {
        if (!result.problem.empty()) result.problem += ' ';
        result.problem += text_of(fault);
    }
    if (result.jobs.empty() && result.problem.empty()) result.problem = "There is nothing to download.";
    return result;
}

rpc::Downloads::Added EngineDownloads::add_links(const rpc::NewJob& job, JobDraft draft) {
    std::vector<std::u16string> addresses;
    for (const std::string& address : job.addresses) {
        if (is_fetchable(to_utf16(address))) addresses.push_back(to_utf16(address));
    }
    if (addresses.empty()) return {{}, "None of the addresses can be downloaded."};
    draft.links.push_back(to_utf8(addresses.front()));
    const bool is_link_of_torrent = is_magnet(draft.links.front());
    if (is_link_of_torrent)
        draft.identity = description_of(draft.identity);  // of which the gid was asked for
    Added added = result_of(engine_.add(draft));
    if (is_link_of_torrent) {
        for (const Guid& one : added.jobs) awaited_.add(one);
    }
    if (added.jobs.size() != 1 || addresses.size() == 1) return added;
    JobEdit edit;
    edit.mirrors.emplace(addresses.begin() + 1, addresses.end());
    // Addresses that cannot be mirrors are those of another network; the first one alone serves then.
    static_cast<void>(engine_.change(added.jobs.front(), edit));
    return added;
}

// Documents are read from files: this one is there for as long as that takes.
rpc::Downloads::Added EngineDownloads::add_document(const rpc::NewJob& job, JobDraft draft) {
    const bool is_torrent = job.kind == rpc::NewJob::Document::torrent;
    const std::u16string name =
        u"received-" + to_utf16(hex_of(new_guid())) + (is_torrent ? u".torrent" : u".metalink");
    const std::u16string path = join_path(engine_.data_folder(), name);
    const FileError error =
        write_file_atomically(path, std::as_bytes(std::span(job.document)), Privacy::owner_only);
    if (!error.ok()) return {{}, "The document cannot be kept: " + error.text()};
    draft.links.push_back(to_utf8(path));
    vantlow::Added added = engine_.add(draft);
    static_cast<void>(remove_file(path));
    for (DraftFault& fault : added.faults) fault.subject = u"The document";
    return result_of(std::move(added));
}

rpc::Downloads::Added EngineDownloads::add(const rpc::NewJob& job) {
    rpc::NewJob whole = job;
    whole.options = defaults_;
    whole.options.take(job.options);
    if (whole.options.gid && !find(*whole.options.gid).empty())
        return {{}, "There is a download " + *whole.options.gid + " already."};
    DraftRequest request = draft_of(whole, default_folder());
    if (request.problem) return {{}, *request.problem};
    // Where no folder was asked for, it is that of the category that the rules choose.
    if (!whole.options.folder && request.draft.folder == default_folder()) request.draft.folder.clear();
    const bool is_document = job.kind != rpc::NewJob::Document::none;
    const bool has_place = job.position.has_value();
    Added added =
        is_document ? add_document(job, std::move(request.draft)) : add_links(job, std::move(request.draft));
    for (const Guid& one : added.jobs) {
        known_[one] = phase_now(*engine_.find(one));
        const auto report = engine_.torrent_report(one, 0);
        // Trackers that every torrent gets are not for private ones.
        static_cast<void>(change_trackers(one, report && report->is_private ? job.options : whole.options));
    }
    if (has_place) {
        std::size_t place = static_cast<std::size_t>(*job.position);
        for (const Guid& one : added.jobs)
            static_cast<void>(move(one, place++));  // behind the last: the last
    }
    for (Guid& one : added.jobs) {
        const Guid shown = awaited_.shown(one);
        note(one, known_[one], false);  // another download may have fetched its description
        one = shown;
    }
    return added;
}

Problem EngineDownloads::pause(const Guid& job) {
    return problem_of(engine_.stop(awaited_.behind(job)), job);
}

Problem EngineDownloads::unpause(const Guid& job) {
    return problem_of(engine_.start(awaited_.behind(job)), job);
}

Problem EngineDownloads::remove(const Guid& shown) {
    const CJobNode* const found = record(shown);
    if (found == nullptr) {
        if (engine_.find(shown) != nullptr) purged_.insert(shown);
        results_.erase(shown);
        std::erase(result_order_, shown);
        ++results_revision_;
        return std::nullopt;
    }
    const Guid job = found->identity;
    const bool is_description = awaited_.contains(job);
    const Phase phase = phase_now(*found);
    rpc::JobStatus last = status(shown, rpc::part::all);
    if (phase == Phase::active) note(job, phase, false);  // its beginning is told before its end
    const Done done = engine_.remove(job, false);
    if (!done.ok() && done.fault != Done::Fault::running) return problem_of(done, shown);
    forget(job);
    if (is_stopped(phase)) {
        known_.erase(job);
        return std::nullopt;
    }
    known_[job] = Phase::removed;
    if (phase == Phase::active) {
        last.phase = Phase::removed;
        keep_result(std::move(last));
        ++stopped_ever_;
        if (is_description && engine_.find(job) != nullptr) purged_.insert(job);
    }
    options_.tell(word_for(Phase::removed), is_description ? description_of(job) : job);
    return std::nullopt;
}

Problem EngineDownloads::change(const Guid& shown, const rpc::JobOptions& options) {
    const CJobNode* const found = record(shown);
    if (found == nullptr) return "The download " + rpc::gid_of(shown) + " has ended.";
    const Guid job = found->identity;
    const EditRequest request = edit_of(options, *found);
    if (request.problem) return request.problem;
    if (request.name) {
        if (const Done done = engine_.rename(job, *request.name); !done.ok()) return problem_of(done, shown);
    }
    torrents_.erase(job);
    if (const Done done = change_trackers(job, options); !done.ok()) return problem_of(done, shown);
    return problem_of(engine_.change(job, request.edit), shown);
}

Done EngineDownloads::change_trackers(const Guid& job, const rpc::JobOptions& options) {
    if (!options.trackers && !options.not_trackers) return {};
    if (const CJobNode* const found = engine_.find(job); kind_of(*found) != JobKind::torrent) return {};
    const auto read = [](const std::optional<std::string>& asked) {
        const std::string text = asked.value_or("");
        std::vector<std::string> list;
        for (const std::string_view part : split(text, ',')) {
            std::string url = normalise_tracker(part);
            if (can_be_announced_to(url)) list.push_back(std::move(url));
        }
        return list;
    };
    const std::vector<std::string> leaving = read(options.not_trackers);
    std::vector<std::string> trackers = engine_.trackers(job);
    std::erase_if(trackers, [&](const std::string& tracker) {
        return options.not_trackers == "*" || std::ranges::find(leaving, tracker) != leaving.end();
    });
    const std::vector<std::string> added = read(options.trackers);
    trackers.insert(trackers.end(), added.begin(), added.end());
    return engine_.set_trackers(job, trackers);
}

// Addresses were told without their credentials: those that stay keep them.
Problem EngineDownloads::change_sources(const Guid& job, const std::vector<std::string>& addresses) {
    const CJobNode* const found = record(job);
    if (found == nullptr) return "The download " + rpc::gid_of(job) + " has ended.";
    std::vector<std::u16string> known{found->address};
    if (found->sources)
        known.insert(known.end(), found->sources->mirrors.begin(), found->sources->mirrors.end());
    std::vector<std::u16string> wanted;
    for (const std::string& address : addresses) {
        if (!is_fetchable(to_utf16(address))) return "The address " + address + " cannot be downloaded.";
        const std::u16string text = to_utf16(address);
        const auto same = std::ranges::find(
            known, text, [](const std::u16string& one) { return without_credentials(one); });
        wanted.push_back(same == known.end() ? text : *same);
    }
    JobEdit edit;
    edit.address = wanted.front();
    edit.mirrors.emplace(wanted.begin() + 1, wanted.end());
    return problem_of(engine_.change(found->identity, edit), job);
}

Problem EngineDownloads::move(const Guid& job, std::size_t place) {
    const CJobNode* const found = record(job);
    if (found != nullptr && phase_now(*found) == Phase::paused)
        return move_paused(job, place - std::min(place, engine_.queue().size()));
    if (found == nullptr || found->state != JobState::waiting)
        return "The download " + rpc::gid_of(job) +
               " has no place in the queue: it does not wait for its turn.";
    return problem_of(move_in_queue(engine_, found->identity, place), job);
}

// Paused ones stand behind all that wait, in an order of their own: that in which they are started together.
Problem EngineDownloads::move_paused(const Guid& own, std::size_t place) {
    const Guid job = awaited_.shown(awaited_.behind(own));
    std::vector<Guid> paused = lists().waiting;
    std::erase_if(paused, [this](const Guid& one) { return phase(one) != Phase::paused; });
    place = std::min(place, paused.size() - 1);
    auto now = static_cast<std::size_t>(std::ranges::find(paused, job) - paused.begin());
    while (now != place) {
        const std::size_t next = now < place ? now + 1 : now - 1;
        const Done done = engine_.swap_stopped(awaited_.behind(job), awaited_.behind(paused[next]));
        if (!done.ok()) return problem_of(done, job);
        now = next;
    }
    return std::nullopt;
}

Problem EngineDownloads::change_global(const rpc::GlobalOptions& options) {
    const auto write = [this](const NumberSetting& setting, std::int64_t value) -> Problem {
        return text_of(engine_.set_setting(setting.section, setting.key, to_utf16(std::to_string(value))),
                       to_utf8(setting.section) + "/" + to_utf8(setting.key));
    };
    if (options.job.folder && !options.job.folder->empty() &&
        absolute_path(to_utf16(*options.job.folder)) != to_utf16(*options.job.folder))
        return "The option dir wants an absolute folder.";
    Problem problem;
    if (options.jobs_at_once) problem = write(setting::max_jobs, *options.jobs_at_once);
    if (!problem && options.split_size) problem = write(setting::split_size, *options.split_size);
    if (!problem && options.most_peers) problem = write(setting::most_peers, *options.most_peers);
    if (!problem && options.down_limit) {
        const std::int64_t limit = *options.down_limit;
        problem = text_of(engine_.set_limit(limit > 0 ? std::optional(limit) : std::nullopt), "The limit");
    }
    if (!problem && options.up_limit) problem = write(setting::upload_limit, *options.up_limit);
    if (!problem) defaults_.take(options.job);
    if (defaults_.folder && defaults_.folder->empty()) defaults_.folder.reset();
    defaults_.gid.reset();
    return problem;
}

// ---- News.

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
