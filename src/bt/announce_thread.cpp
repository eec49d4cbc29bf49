#include "bt/announce_thread.h"

#include <algorithm>
#include <utility>

#include "base/string_table.h"
#include "base/text.h"
#include "bt/torrent_settings.h"
#include "platform/thread.h"
#include "platform/udp_socket.h"

namespace vantlow {
namespace {

constexpr std::chrono::seconds longest_goodbye{2};
constexpr std::chrono::seconds longest_pause{1800};

}  // namespace

CBTAnnounceThread::CBTAnnounceThread(const AnnounceServices& services, TorrentIdentity& job,
                                     std::string tracker, AnnounceEvent initial, LogSink& log,
                                     StopSource& parent)
    : services_(services),
      job_(job),
      tracker_(std::move(tracker)),
      initial_(initial),
      log_(log),
      stop_(parent),
      news_(stop_) {}

CBTAnnounceThread::~CBTAnnounceThread() {
    abandon();
    join();
}

void CBTAnnounceThread::start() {
    const Result started = start_thread(thread_, [this] {
        run();
        ended_ = true;
    });
    if (started.ok()) return;
    log_.line(Direction::error, started.message());
    refuse(started);
    ended_ = true;
}

void CBTAnnounceThread::abandon() noexcept {
    stop_.request();
    last_stop_.request();
}

void CBTAnnounceThread::join() {
    if (thread_.joinable()) thread_.join();
}

AnnounceReport CBTAnnounceThread::report() const {
    const MutexLock guard(mutex_);
    return report_;
}

std::uint32_t CBTAnnounceThread::numwant() const {
    return static_cast<std::uint32_t>(services_.settings.number(setting::numwant));
}

void CBTAnnounceThread::run() {
    if (normalise_tracker(tracker_).empty()) return;
    if (!announce(tracker_, initial_) || initial_ != AnnounceEvent::started) return;
    bool is_heard = false;  // that it is complete
    bool is_told = false;
    ask_for_counts(news_);
    while (!stop_.requested() && interval_ != 0) {
        (is_heard ? stop_ : news_).wait_for(std::chrono::seconds(interval_));
        if (stop_.requested()) break;
        is_heard = is_complete_;
        const bool tells = is_heard && !is_told;
        const bool ok = announce(tracker_, tells ? AnnounceEvent::completed : AnnounceEvent::none);
        is_told = is_told || (tells && ok);
        if (ok && interval_ != 0) ask_for_counts(is_heard ? stop_ : news_);
    }
    // A tracker that wants no more announces has said why, and what it answers to the goodbye says nothing.
    const std::optional<AnnounceReport> last = interval_ == 0 ? std::optional(report()) : std::nullopt;
    if (is_complete_ && !is_told) announce(tracker_, AnnounceEvent::completed);
    announce(tracker_, AnnounceEvent::stopped);
    const MutexLock guard(mutex_);
    if (last) report_ = *last;
}

void CBTAnnounceThread::complete() noexcept {
    is_complete_ = true;
    news_.request();
}

bool CBTAnnounceThread::announce(std::string_view tracker, AnnounceEvent event) {
    if (!busy_.try_lock()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return false;
    }
    // The end of a torrent mostly follows its completion at once, and would cut this announce short after the
    // tracker has counted it.
    stopping_ = event == AnnounceEvent::stopped || (event == AnnounceEvent::completed && is_complete_);
    const bool ok = announce_now(normalise_tracker(tracker), event);
    announced_ = true;
    busy_.unlock();
    return ok;
}

// Some trackers tell the counts only where they are asked for them alone.
void CBTAnnounceThread::ask_for_counts(const StopSource& stop) {
    const AnnounceReport last = report();
    if (!last.ok || last.is_last || last.counts || istarts_with(tracker_, "udp://")) return;
    const auto counts = scrape_http(normalise_tracker(tracker_), stop);
    if (!counts) return;
    const MutexLock guard(mutex_);
    report_.counts = *counts;
}

Outcome<SwarmCounts> CBTAnnounceThread::scrape() {
    const std::string url = normalise_tracker(tracker_);
    return istarts_with(url, "udp://") ? scrape_udp(url) : scrape_http(url, active_stop());
}

bool CBTAnnounceThread::announce_now(const std::string& url, AnnounceEvent event) {
    log_.line(Direction::note, "Parsing " + without_keys(url));
    auto respond = istarts_with(url, "udp://") ? ask_udp(url, event) : ask_http(url, event);
    if (respond.ok()) return accept(*std::move(respond));
    refuse(respond.failure());
    return false;
}

// Takes a valid answer, which may still be the tracker's refusal.
bool CBTAnnounceThread::accept(CBETrackerRespond respond) {
    const std::string text = one_line(respond.text);
    if (!text.empty()) log_.line(Direction::error, text);
    if (respond.own && job_.port != 0) {
        respond.own->set_port(job_.port);
        job_.peers.add_own(*respond.own);
    }
    interval_ = respond.interval;
    AnnounceReport report;
    report.ok = !respond.is_failure;
    report.is_last = respond.interval == 0;
    report.interval = respond.interval;
    report.peers = respond.peers();
    report.counts = respond.counts;
    (respond.is_failure ? report.failure : report.warning) = text;
    const std::size_t added = job_.peers.add(report.peers);
    if (!respond.is_failure) {
        log_.line(Direction::note,
                  print("Tracker: %zu peers, %zu of them new; next announce in %lld s.", report.peers.size(),
                        added, static_cast<long long>(respond.interval)));
    }
    report.made = Clock::now();
    {
        const MutexLock guard(mutex_);
        report_ = std::move(report);
    }
    if (added > 0 && services_.on_peers) services_.on_peers();
    return true;
}

void CBTAnnounceThread::refuse(const Result& result) {
    AnnounceReport report;
    report.failure = one_line(result.message());
    report.interval = interval_;
    report.made = Clock::now();
    const MutexLock guard(mutex_);
    report_ = std::move(report);
}

void CBTAnnounceThread::note_own_address(const SocketAddress& local) {
    if (job_.port == 0) return;
    SocketAddress own = local;
    own.set_port(job_.port);
    job_.peers.add_own(own);
}

void CBTAnnounceService::start(const std::vector<std::string>& trackers, AnnounceEvent initial) {
    for (const std::string& url : distinct_trackers(trackers)) add(url, initial);
}

void CBTAnnounceService::add(const std::string& url, AnnounceEvent initial) {
    threads_.push_back(std::make_unique<CBTAnnounceThread>(services_, job_, url, initial, log_, parent_));
    pauses_.emplace_back();
    threads_.back()->start();
}

void CBTAnnounceService::follow(const std::vector<std::string>& trackers) {
    auto before = std::exchange(threads_, {});
    const auto pauses = std::exchange(pauses_, {});
    for (const std::string& url : distinct_trackers(trackers)) {
        const auto at = std::ranges::find_if(
            before, [&](const auto& thread) { return thread != nullptr && thread->tracker() == url; });
        if (at == before.end()) {
            add(url, AnnounceEvent::started);
            continue;
        }
        pauses_.push_back(pauses[static_cast<std::size_t>(at - before.begin())]);
        threads_.push_back(std::move(*at));
    }
    for (auto& thread : before) {
        if (thread == nullptr) continue;
        thread->stop();
        leaving_.push_back(std::move(thread));
    }
}

bool CBTAnnounceService::is_running() const noexcept {
    const auto runs = [](const auto& thread) { return !thread->has_ended(); };
    return std::any_of(threads_.begin(), threads_.end(), runs) ||
           std::any_of(leaving_.begin(), leaving_.end(), runs);
}

bool CBTAnnounceService::has_asked_all() const noexcept {
    return std::all_of(threads_.begin(), threads_.end(),
                       [](const auto& thread) { return thread->has_announced() || thread->has_ended(); });
}

void CBTAnnounceService::complete() {
    for (const auto& thread : threads_) thread->complete();
}

void CBTAnnounceService::ask_to_stop() {
    for (const auto& thread : threads_) thread->stop();
    if (!goodbye_until_) goodbye_until_ = Clock::now() + longest_goodbye;
}

void CBTAnnounceService::stop() {
    ask_to_stop();
    const StopSource never;
    while (is_running() && Clock::now() < *goodbye_until_) never.wait_for(std::chrono::milliseconds(5));
    for (const auto& thread : threads_) thread->abandon();
    for (const auto& thread : leaving_) thread->abandon();
    threads_.clear();
    leaving_.clear();
    pauses_.clear();
    goodbye_until_.reset();
}

std::optional<Clock::time_point> CBTAnnounceService::next_announce(std::size_t index) const {
    const CBTAnnounceThread& thread = *threads_[index];
    const AnnounceReport report = thread.report();
    if (thread.has_ended()) {
        const auto until = pauses_[index].until;
        return until == Clock::time_point{} ? std::nullopt : std::optional(until);
    }
    if (!thread.has_announced() || report.is_last || report.interval <= 0) return std::nullopt;
    return report.made + std::chrono::seconds(report.interval);
}

void CBTAnnounceService::revive() {
    std::erase_if(leaving_, [](const auto& thread) { return thread->has_ended(); });
    const auto now = Clock::now();
    for (std::size_t i = 0; i < threads_.size(); ++i) {
        if (!threads_[i]->has_ended() || parent_.requested() || threads_[i]->report().is_last) continue;
        Pause& pause = pauses_[i];
        if (pause.until == Clock::time_point{}) {
            pause.until = now + pause.length;
        } else if (now >= pause.until) {
            pause = {std::min(pause.length * 2, longest_pause), {}};
            threads_[i] = std::make_unique<CBTAnnounceThread>(services_, job_, threads_[i]->tracker(),
                                                              AnnounceEvent::started, log_, parent_);
            threads_[i]->start();
        }
    }
}

}  // namespace vantlow
