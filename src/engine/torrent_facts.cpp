// A running torrent's answers to those who ask what it does. They are made on its own thread, between two of
// its rounds, so that nothing need be guarded and nothing is copied while nobody asks.
#include <algorithm>
#include <utility>

#include "base/safe_name.h"
#include "engine/torrent_run.h"

namespace vantlow {
namespace {

// Whoever asks looks after other jobs too.
constexpr std::chrono::milliseconds longest_wait{250};

}  // namespace

void TorrentRun::open_for_questions() {
    const MutexLock guard(mutex_);
    takes_questions_ = true;
}

// The loop drops a question that came too late.
void TorrentRun::close_for_questions() {
    const MutexLock guard(mutex_);
    takes_questions_ = false;
    answered_now_.notify_all();
}

bool TorrentRun::report(unsigned parts, TorrentReport& report) {
    std::uint64_t number = 0;
    {
        MutexLock guard(mutex_);
        if (takes_questions_) number = ++asked_;
    }
    const auto answer = [this, parts, number] {
        TorrentReport made = look(parts);
        const MutexLock guard(mutex_);
        if (number != asked_) return;  // nobody waits for it any more
        answer_ = std::move(made);
        answered_ = number;
        answered_now_.notify_all();
    };
    if (number != 0 && loop_->post(answer)) {
        MutexLock guard(mutex_);
        answered_now_.wait_for(guard, longest_wait, [this, number]() VANTLOW_REQUIRES(mutex_) {
            return answered_ == number || !takes_questions_;
        });
        if (answered_ == number) {
            report = std::exchange(answer_, {});
            return true;
        }
        ++asked_;
    }
    report = {};
    using ReportPhase = TorrentReport::Phase;
    const Phase phase = phase_;
    report.phase = phase == Phase::description ? ReportPhase::description
                   : phase == Phase::check     ? ReportPhase::check
                                               : ReportPhase::exchange;
    if (phase == Phase::check) report.checked_pieces = checked_.pieces;
    return false;
}

TorrentReport TorrentRun::look(unsigned parts) const {
    TorrentReport report;
    report.phase = description_ != nullptr ? TorrentReport::Phase::description
                   : named_                ? TorrentReport::Phase::sharing
                                           : TorrentReport::Phase::exchange;
    report.info_hash = magnet_.info_hash;
    report.size = size_;
    report.done = done_;
    report.known = identity_.peers.size();
    const TorrentTally before = job_.tally ? *job_.tally : TorrentTally();
    report.received = before.received;
    report.sent = before.sent;
    if ((parts & torrent_part::trackers) != 0) look_at_trackers(report);
    report.port = reach_.port();
    const PortMapper::State passed_on = reach_.router_state();
    report.is_passed_on = passed_on.is_open;
    report.port_news = passed_on.text;
    const PortMapper::State let_in = reach_.firewall_state();
    report.is_let_in = let_in.is_open;
    report.firewall_news = let_in.text;
    if (description_ != nullptr) report.blocked = description_->blocked();
    if (swarm_ == nullptr) return report;
    report.blocked = swarm_->blocked();
    report.received += swarm_->downloaded() + swarm_->wasted();
    report.sent += swarm_->uploaded();
    report.known = swarm_->known();
    look_at_peers(parts, report);
    look_at_files(parts, report);
    return report;
}

void TorrentRun::look_at_peers(unsigned parts, TorrentReport& report) const {
    swarm_->visit([&](const PeerLink& link) {
        if (!link.is_live) return;
        TorrentPeer peer;
        peer.is_seed = link.has.is_all();
        peer.received_rate = link.owes.empty() ? 0 : link.window.rate();
        peer.sent_rate = link.give_rate;
        report.received_rate += peer.received_rate;
        report.sent_rate += peer.sent_rate;
        ++report.connections;
        if (peer.is_seed) ++report.seeds;
        if ((parts & torrent_part::peers) == 0) return;
        peer.address = link.address();
        peer.id = link.peer_id;
        const WebSeed* const seed = web_seed_at(link.address());
        peer.client = seed != nullptr ? seed->shown_address() : peer_client(link.version, link.peer_id);
        peer.is_incoming = link.is_incoming();
        peer.is_encrypted = link.is_encrypted();
        peer.is_over_datagrams = link.is_over_datagrams();
        peer.chokes_us = link.chokes_us;
        peer.is_choked = link.choked_by_us;
        peer.is_interested = link.is_interested;
        peer.is_interesting = link.we_are_interested;
        if (link.has.size() > 0) peer.progress = static_cast<double>(link.has.count()) / link.has.size();
        peer.received = link.received;
        peer.sent = link.given;
        peer.pieces = link.has.wire();
        report.peers.push_back(std::move(peer));
    });
}

void TorrentRun::look_at_trackers(TorrentReport& report) const {
    const auto& threads = announces_.threads();
    const std::size_t own = distinct_trackers(own_trackers_).size();  // they come first
    for (std::size_t i = 0; i < threads.size(); ++i) {
        const AnnounceReport last = threads[i]->report();
        TorrentTracker tracker;
        tracker.address = without_keys(threads[i]->tracker());
        tracker.tier = static_cast<int>(i);
        tracker.is_listed = i >= own;
        using State = TorrentTracker::State;
        tracker.state = !threads[i]->has_announced() && !threads[i]->has_ended() ? State::asking
                        : !last.ok                                               ? State::fails
                        : last.is_last                                           ? State::ended
                                                                                 : State::works;
        tracker.failure = last.failure;
        tracker.peers = last.peers.size();
        tracker.counts = last.counts;
        tracker.next = announces_.next_announce(i);
        report.trackers.push_back(std::move(tracker));
    }
}

void TorrentRun::look_at_files(unsigned parts, TorrentReport& report) const {
    const Storage& storage = files_->storage();
    const FileList& files = storage.files();
    // Those who ask want to see what was chosen just now, too.
    std::uint64_t number = 0;
    const auto newest = choice_of(content_, rules(number).get());
    describe_torrent(content_, files, newest ? *newest : choice_, good_, parts, report);
    if ((parts & torrent_part::pieces) != 0) {
        const Picker& picker = swarm_->picker();
        PieceSet begun(picker.pieces());
        for (std::uint32_t piece = 0; piece < picker.pieces(); ++piece) {
            report.availability.push_back(picker.availability(piece));
            if (picker.is_begun(piece)) begun.add(piece);
        }
        report.begun = begun.wire();
    }
    if ((parts & torrent_part::files) == 0) return;
    std::size_t shown = 0;
    for (std::size_t file = 0; file < files.count(); ++file) {
        if (files.at(file).padding) continue;
        std::u16string path = storage.path(file);
        if (path.ends_with(partial_suffix) && storage.shape(file) != FileShape::finished)
            path.resize(path.size() - partial_suffix.size());
        report.files[shown++].path = std::move(path);
    }
}

TorrentTally TorrentRun::tally() const {
    const MutexLock guard(mutex_);
    return tally_;
}

}  // namespace vantlow
