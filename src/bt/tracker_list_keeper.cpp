#include "bt/tracker_list_keeper.h"

#include <ctime>

#include "base/text.h"
#include "bt/announce.h"
#include "bt/torrent_settings.h"
#include "platform/file.h"
#include "store/job_log.h"
#include "transfer/http/client.h"

namespace vantlow {
namespace {

std::int64_t seconds_since_1970() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

}  // namespace

TrackerListKeeper::TrackerListKeeper(const Settings& settings, ConnectionServices& connections,
                                     const LibraryTables& libraries, ThreadPool& threads, StopSource& parent,
                                     const std::u16string& folder, bool keeps, Times times)
    : settings_(settings),
      connections_(connections),
      libraries_(libraries),
      stop_(parent),
      path_(join_path(folder, u"trackerlist.txt")),
      keeps_(keeps),
      times_(times),
      due_(threads) {}

TrackerListKeeper::~TrackerListKeeper() {
    stop_.request();
}

std::shared_ptr<const TrackerListKeeper::State> TrackerListKeeper::current(
    const std::function<HttpErrand()>& errand) {
    const std::string address(trim(to_utf8(settings_.text(setting::tracker_list))));
    bool is_other = false;
    {
        const MutexLock guard(mutex_);
        is_other = address != address_;
        if (is_other) state_ = nullptr;
        address_ = address;
    }
    if (is_other) due_.make_due();
    if (address.empty()) return nullptr;
    if (!stop_.requested() && due_.claim()) {
        const bool is_under_way =
            due_.start([this, address, made = errand()] { return work(address, made); });
        if (!is_under_way) due_.done(times_.again);
    }
    const MutexLock guard(mutex_);
    return address == address_ ? state_ : nullptr;
}

Clock::duration TrackerListKeeper::work(const std::string& address, HttpErrand errand) {
    load(address);
    State made;
    made.address = without_keys(address);
    const std::int64_t lasts = times_.lasts.count();
    if (!kept_ || !kept_->is_fresh(address, seconds_since_1970(), lasts)) {
        auto list = fetch(address, std::move(errand));
        if (list) {
            kept_ = KeptTrackerList{address, seconds_since_1970(), *std::move(list)};
            made.failure = keep();
        } else {
            made.failure = list.failure().message();
        }
    }
    Clock::duration pause = times_.again;
    if (kept_) {
        made.list = kept_->list;
        const std::chrono::seconds left(kept_->fetched + lasts - seconds_since_1970());
        if (left.count() > 0) pause = std::min<Clock::duration>(pause, left);
    }
    const MutexLock guard(mutex_);
    if (address != address_) return pause;
    const bool is_news = !state_ || !(state_->list == made.list) || state_->failure != made.failure;
    if (is_news && !stop_.requested()) state_ = std::make_shared<const State>(std::move(made));
    return pause;
}

// A list that is kept of another address is of no use.
void TrackerListKeeper::load(const std::string& address) {
    if (kept_ && kept_->address == address) return;
    kept_.reset();
    std::vector<std::byte> bytes;
    if (!read_file(path_, TrackerList::longest_text, bytes).ok()) return;
    kept_ = read_kept_tracker_list({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    if (kept_ && kept_->address != address) kept_.reset();
}

Outcome<TrackerList> TrackerListKeeper::fetch(const std::string& address, HttpErrand errand) {
    if (!istarts_with(address, "http://") && !istarts_with(address, "https://"))
        return Result(Code::invalid_url, "A list of trackers has an address of HTTP.");
    errand.address = to_utf16(address);
    errand.http.extra = {"Accept-Encoding: gzip"};
    errand.shown = without_keys;
    CJobLog log;  // nobody reads it: the torrents say what became of the list
    const auto document =
        fetch_document({connections_, libraries_, log, stop_}, errand, TrackerList::longest_text);
    if (!document) return document.failure();
    return read_tracker_list(document->bytes);
}

std::string TrackerListKeeper::keep() const {
    if (!keeps_) return {};
    const std::string text = text_of(*kept_);
    const FileError error = write_file_atomically(path_, std::as_bytes(std::span(text)), Privacy::owner_only);
    return error.ok() ? std::string() : "It cannot be kept: " + error.text();
}

}  // namespace vantlow
