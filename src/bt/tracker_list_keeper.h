// The list of trackers that public torrents get beside their own, as the setting wants it now.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/clock.h"
#include "base/mutex.h"
#include "bt/due_work.h"
#include "bt/tracker_list.h"
#include "platform/stop.h"
#include "store/settings.h"
#include "transfer/http/errand.h"

namespace vantlow {

/// Keeps the list whose address "Torrent"/"TrackerList" names: fetches it once a day, and keeps it with its
/// date in a file of the data folder ("trackerlist.txt"), so that the next start need not. A list that cannot
/// be had, or is none, leaves the one before it; it is tried again after an hour. Any thread may call.
class TrackerListKeeper {
  public:
    struct Times {
        std::chrono::seconds lasts{
            86400};  ///< of the clock on the wall: a list's age when it is fetched again
        std::chrono::seconds again{3600};  ///< until a list is tried again, and until dates are looked at
    };
    /// The list and its news.
    struct State {
        TrackerList list;     ///< empty: none was there yet
        std::string address;  ///< where it comes from, as it may be shown
        std::string failure;  ///< a sentence about the last attempt, UTF-8; empty: it went well
    };
    /// All outlive the object. `folder`: where the list is kept. `keeps`: false where the folder is somebody
    /// else's; a list that is kept there is used all the same.
    TrackerListKeeper(const Settings& settings, ConnectionServices& connections,
                      const LibraryTables& libraries, ThreadPool& threads, StopSource& parent,
                      const std::u16string& folder, bool keeps)
        : TrackerListKeeper(settings, connections, libraries, threads, parent, folder, keeps, Times()) {}
    TrackerListKeeper(const Settings& settings, ConnectionServices& connections,
                      const LibraryTables& libraries, ThreadPool& threads, StopSource& parent,
                      const std::u16string& folder, bool keeps, Times times);
    ~TrackerListKeeper();
    TrackerListKeeper(const TrackerListKeeper&) = delete;
    TrackerListKeeper& operator=(const TrackerListKeeper&) = delete;

    /// The state of this moment, null where no list is wanted or nothing is known yet; the same object until
    /// something changes. Never waits; to be asked about once a second. Where the list is to be fetched, the
    /// errand says how: by the proxy and the interface of whichever torrent asks then, so that the list takes
    /// no way that its torrent would not. What the errand refers to outlives this object.
    std::shared_ptr<const State> current(const std::function<HttpErrand()>& errand);

  private:
    /// Returns the time until there is something to do again.
    Clock::duration work(const std::string& address, HttpErrand errand);
    void load(const std::string& address);
    Outcome<TrackerList> fetch(const std::string& address, HttpErrand errand);
    /// Empty where it is kept, else a sentence.
    [[nodiscard]] std::string keep() const;

    const Settings& settings_;
    ConnectionServices& connections_;
    const LibraryTables& libraries_;
    StopSource stop_;
    const std::u16string path_;
    const bool keeps_;
    const Times times_;

    Mutex mutex_;
    std::string address_ VANTLOW_GUARDED_BY(mutex_);  ///< that the state is of
    std::shared_ptr<const State> state_ VANTLOW_GUARDED_BY(mutex_);

    std::optional<KeptTrackerList> kept_;  ///< the work's
    DueWork due_;                          ///< last
};

}  // namespace vantlow
