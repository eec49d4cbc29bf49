// The filter of addresses as the settings and the lists on the disk have it now.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "bt/due_work.h"
#include "bt/ip_filter.h"
#include "platform/file_marks.h"
#include "runtime/tables.h"
#include "store/settings.h"

namespace vantlow {

/// Reads the list file into the reader, plain or as gzip (RFC 1952), from a file of any size with a bounded
/// part of it in memory. A list that cannot be read to its end counts as far as it was; the reader knows why.
void read_ip_filter(const std::u16string& path, const SshTable& unpacking, IpFilterReader& reader);

/// Keeps the filter: "ipfilter.dat" of a folder and the list that "Torrent"/"IPFilterFile" names, unless
/// "Torrent"/"IPFilter" is 0. A list that changes is read anew within some seconds. Any thread may call.
class IpFilterKeeper {
  public:
    /// All outlive the object. `folder`: with "ipfilter.dat". The lists are looked at no more often than
    /// that.
    IpFilterKeeper(const Settings& settings, const SshTable& unpacking, ThreadPool& threads,
                   const std::u16string& folder, Clock::duration between_looks = std::chrono::seconds(2));
    IpFilterKeeper(const IpFilterKeeper&) = delete;
    IpFilterKeeper& operator=(const IpFilterKeeper&) = delete;

    /// The filter of this moment, null where nothing is blocked; the same object until a list changes. Waits
    /// for the lists to be read the first time, never afterwards. To be asked for now and then.
    std::shared_ptr<const IpFilter> current();

  private:
    struct List {
        std::u16string path;
        FileStamp stamp;
        bool operator==(const List&) const = default;
    };
    /// Returns the time until the next look.
    Clock::duration look();
    [[nodiscard]] std::vector<List> lists() const;

    const Settings& settings_;
    const SshTable& unpacking_;
    const std::u16string own_list_;
    const Clock::duration between_looks_;

    Mutex mutex_;
    Condition was_read_;
    std::shared_ptr<const IpFilter> filter_ VANTLOW_GUARDED_BY(mutex_);
    bool is_known_ VANTLOW_GUARDED_BY(mutex_) = false;  ///< the lists were read once

    std::vector<List> read_;  ///< as they were when they were read; of whoever looks
    DueWork due_;             ///< last
};

}  // namespace vantlow
