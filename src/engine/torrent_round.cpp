// A running torrent's rounds: what its loop does beside the swarm.
#include <algorithm>
#include <utility>

#include "base/text.h"
#include "bt/torrent_settings.h"
#include "engine/torrent_run.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr Clock::duration round_time = 1s;
constexpr Clock::duration save_interval = 10s;  // a kill costs no more than the pieces of this time
// A short download is worth it too: it is saved as often as this at the beginning.
constexpr Clock::duration first_interval = 1s;
// A file that was written to long after the last save is another writer's (doubt_changed_files()): a slow
// piece does not make it seem so.
constexpr Clock::duration longest_interval = 30s;
// Files that are shared may be gone, with their disk, for long before somebody asks for them.
constexpr Clock::duration look_interval = 10s;
constexpr Clock::duration patience = 5s;  // before it is said that nobody gives anything
// The log of a job is for reading, so it shows only the first peers of a swarm.
constexpr std::size_t most_logged = 100;

}  // namespace

void TorrentRun::take_caller(std::unique_ptr<net::Stream> stream) {
    if (swarm_ != nullptr) return swarm_->take_incoming(std::move(stream));
    if (description_ != nullptr) description_->take_incoming(std::move(stream));
}

void TorrentRun::start_round() {
    began_ = idle_since_ = Clock::now();
    next_save_ = began_ + first_interval;
    every_second();
}

void TorrentRun::every_second() {
    pace_.follow(services_.settings);
    sent_.follow(services_.settings.number(setting::upload_limit));
    follow_filter();
    if (reach_.follow_way()) {
        sources_.call_near_again(*loop_, reach_.port());
        if (swarm_ != nullptr) swarm_->begin_anew();
    }
    reach_.log_router();
    follow_tracker_list();
    announces_.revive();
    tell_peers();
    call_web_seeds();
    count();
    show();
    if (is_shared_enough()) {
        is_complete_ = true;
        loop_->stop();
    }
    const auto now = Clock::now();
    const bool is_due = (has_news_ && now >= next_save_) || (received_ != saved_ && now >= latest_save_);
    if (is_due && !named_ && !is_saving_) save_some();
    look_after_files();
    ticks_->start(loop_->now() + round_time, [this] { every_second(); });
}

void TorrentRun::follow_filter() {
    if (reach_.has_new_filter()) hand_on_filter();
}

void TorrentRun::hand_on_filter() {
    if (swarm_ != nullptr) swarm_->set_filter(reach_.filter());
    if (description_ != nullptr) description_->set_filter(reach_.filter());
}

// Hands on what the trackers and the other sources have told since the last time.
void TorrentRun::tell_peers() {
    if (swarm_ == nullptr && description_ == nullptr) return;
    const std::vector<SocketAddress> named = identity_.peers.fresh(told_);
    if (swarm_ != nullptr) swarm_->add_peers(named);
    if (description_ != nullptr) description_->add_peers(named);
    for (const SocketAddress& peer : named) log_peer(peer);
    sources_.look(swarm_ != nullptr ? swarm_->peers() == 0
                                    : description_ == nullptr || description_->peers() == 0);
    const std::vector<SocketAddress> found = sources_.fresh();
    if (found.empty()) return;
    if (swarm_ != nullptr) swarm_->add_named(found);
    if (description_ != nullptr) description_->add_named(found);
}

// Once each: the swarm is told again what the search for the description was told.
void TorrentRun::log_peer(const SocketAddress& peer) {
    if (logged_.size() < most_logged && logged_.insert(peer_text(peer)).second)
        log_.line(Direction::note, "Peer: " + peer_text(peer));
}

// The system may take its time for each of them.
void TorrentRun::look_up_peers() {
    if (magnet_.named_peers.empty()) return;
    if (reach_.is_behind_proxy())
        return log_.line(Direction::note,
                         "Peers that the link names by host names are not called: beside a proxy no name is "
                         "looked up.");
    const Result started = services_.threads.start(look_up_, [this, named = magnet_.named_peers] {
        std::vector<SocketAddress> found;
        for (const Magnet::NamedPeer& peer : named) {
            const auto addresses =
                services_.connections.resolver.resolve(peer.host, peer.port, look_up_stop_, reach_.way());
            if (addresses) found.insert(found.end(), addresses->begin(), addresses->end());
        }
        static_cast<void>(loop_->post([this, found] { take_looked_up(found); }));
    });
    if (!started.ok()) log_.line(Direction::error, started.message());
}

void TorrentRun::take_looked_up(const std::vector<SocketAddress>& peers) {
    magnet_.peers.insert(magnet_.peers.end(), peers.begin(), peers.end());
    if (swarm_ != nullptr && !content_.is_private) swarm_->add_peers(peers);
    if (description_ != nullptr) description_->add_peers(peers);
}

// Where the peers came from, in one line.
void TorrentRun::log_sources() {
    log_.line(Direction::note, "Peers were named by trackers (" + std::to_string(identity_.peers.size()) +
                                   "), the distributed hash table (" + std::to_string(sources_.from_table()) +
                                   "), other peers (" + std::to_string(swarm_->exchanged()) +
                                   ") and calls in this network (" + std::to_string(sources_.from_near()) +
                                   "); " + std::to_string(swarm_->callers()) + " called, " +
                                   std::to_string(swarm_->blocked()) + " were blocked.");
}

// The next announces carry these numbers.
void TorrentRun::count() {
    if (swarm_ == nullptr) return;
    received_ = swarm_->downloaded() + swarm_->wasted();
    given_ = swarm_->uploaded();
    identity_.downloaded = swarm_->downloaded();
    identity_.uploaded = swarm_->uploaded();
    identity_.left = size_ - done_;
}

void TorrentRun::save_some() {
    is_saving_ = true;
    has_news_ = false;
    saved_ = received_;
    latest_save_ = Clock::now() + longest_interval;
    const auto is_lost = std::make_shared<bool>(false);
    disk_->run([this, good = good_, is_lost] { return files_->save(good, *is_lost); },
               [this, is_lost](const Result& result) {
                   is_saving_ = false;
                   const auto now = Clock::now();
                   next_save_ = now + (now - began_ < save_interval ? first_interval : save_interval);
                   if (!result.ok() && *is_lost) return failed(result);
                   if (!result.ok()) log_.line(Direction::error, result.message());
                   follow_rules();
                   if (!is_saving_ && std::exchange(share_after_saving_, false)) share();
               });
}

void TorrentRun::look_after_files() {
    if (!named_ || Clock::now() < next_look_) return;
    next_look_ = Clock::now() + look_interval;
    disk_->run(
        [target = files_->target()] {
            if (path_kind(target) != PathKind::none) return Result();
            return Result(Code::local_file,
                          to_utf8(target) + ": the torrent's files are not there any more.");
        },
        [this](const Result& result) {
            if (!result.ok() && !failure_) failed(result);
        });
}

void TorrentRun::piece_came(std::uint32_t piece) {
    good_[piece] = true;
    done_ += files_->chosen_bytes_of(piece);
    has_news_ = true;
}

void TorrentRun::completed() {
    if (is_choosing_) return;  // it is looked at again when that is over
    if (sharing_.goes_on) return share();
    is_complete_ = gives_names_ = true;
    loop_->stop();
}

// The files get their names while their pieces are given to others. A state that is being saved comes first.
void TorrentRun::share() {
    has_news_ = false;
    if (is_saving_) {
        share_after_saving_ = true;
        return;
    }
    is_saving_ = gives_names_ = true;  // and from now on none is saved
    disk_->run([this, good = good_] { return give_names(good); },
               [this](const Result& result) {
                   if (result.kind() == Kind::stopped) return;
                   if (!result.ok()) return failed(result);
                   files_->take_names();
                   named_ = Clock::now();
                   count();
                   if (received_ > 0) announces_.complete();
                   log_.line(Direction::note, "Everything is there, and is shared.");
               });
}

bool TorrentRun::is_shared_enough() const {
    if (!named_) return false;
    const auto wanted = sharing_.ratio * static_cast<double>(size_);
    const TorrentTally tally = count_up();
    const bool is_enough = sharing_.ratio > 0 && static_cast<double>(tally.sent) >= wanted;
    return is_enough || (sharing_.time.count() > 0 && tally.shared >= sharing_.time.count());
}

void TorrentRun::banned(const SocketAddress& peer) {
    if (WebSeed* const seed = web_seed_at(peer)) return seed->ban();
    log_.line(Direction::error, "The peer " + peer_text(peer) + " gave wrong data and is left.");
}

void TorrentRun::failed(const Result& why) {
    failure_ = why;
    loop_->stop();
}

void TorrentRun::show() {
    JobProgress progress;
    progress.path = files_ && !files_->target().empty() ? files_->target() : job_.path;
    progress.size = size_;
    progress.done = done_;
    progress.received = received_;
    if (phase_ == Phase::check) progress.checked = 0;
    progress.sent = given_;
    progress.shares = named_.has_value();
    std::vector<SessionConnection> connections;
    for (const auto& thread : announces_.threads()) {
        SessionConnection tracker;
        tracker.peer = without_keys(thread->tracker());
        tracker.works = !thread->has_ended();
        tracker.trouble = thread->report().failure;
        connections.push_back(std::move(tracker));
    }
    show_peers(progress, connections);
    if (progress.connections > 0 || done_ == size_) idle_since_ = Clock::now();
    if (Clock::now() - idle_since_ >= patience) progress.waiting_for = lack();
    if (!reach_.way_trouble().empty()) progress.waiting_for = reach_.way_trouble();
    if (!progress.waiting_for.empty() && progress.waiting_for != lacked_) {
        lacked_ = progress.waiting_for;
        log_.line(Direction::note, lacked_);
    }
    const MutexLock guard(mutex_);
    tally_ = count_up();
    progress_ = std::move(progress);
    connections_ = std::move(connections);
}

TorrentTally TorrentRun::count_up() const {
    TorrentTally tally = job_.tally ? *job_.tally : TorrentTally();
    tally.received += received_;
    tally.sent += given_;
    if (named_)
        tally.shared += std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *named_).count();
    return tally;
}

void TorrentRun::show_peers(JobProgress& progress, std::vector<SessionConnection>& connections) const {
    if (swarm_ == nullptr) return;
    for (const SwarmPeer& peer : swarm_->look()) {
        if (!peer.is_live) continue;
        SessionConnection connection;
        const WebSeed* const seed = web_seed_at(peer.address);
        connection.peer = seed != nullptr ? seed->shown_address() : peer_text(peer.address);
        connection.works = peer.gives;
        connections.push_back(std::move(connection));
        if (peer.gives) ++progress.connections;
    }
}

// Why nothing comes.
std::string TorrentRun::lack() const {
    const std::size_t known = swarm_ != nullptr         ? swarm_->known()
                              : description_ != nullptr ? description_->known()
                                                        : 0;
    switch (phase_) {
        case Phase::description:
            return known == 0 ? "The torrent's description comes from peers, and none is known yet."
                              : "The torrent's description comes from peers, and none has given it yet.";
        case Phase::check:
            return {};
        case Phase::exchange:
            break;
    }
    if (known == 0) return "No peer is known yet.";
    const auto peers = swarm_->look();
    const bool is_anybody =
        std::any_of(peers.begin(), peers.end(), [](const SwarmPeer& p) { return p.is_live; });
    return is_anybody ? "No peer gives what is missing." : "None of the known peers can be reached.";
}

JobProgress TorrentRun::progress() const {
    const MutexLock guard(mutex_);
    JobProgress progress = progress_;
    if (progress.checked) progress.checked = checked_.bytes_read.load();
    return progress;
}

std::vector<SessionConnection> TorrentRun::connections() const {
    const MutexLock guard(mutex_);
    return connections_;
}

}  // namespace vantlow
