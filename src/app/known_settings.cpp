#include "app/known_settings.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "base/text.h"
#include "bt/torrent_settings.h"
#include "store/setting_table.h"

namespace vantlow {
namespace {

KnownSetting known(const NumberSetting& setting) {
    KnownSetting made{to_utf8(setting.section),
                      to_utf8(setting.key),
                      std::to_string(setting.standard),
                      std::nullopt,
                      std::nullopt,
                      std::string(setting.meaning)};
    constexpr std::int64_t any = std::numeric_limits<std::int32_t>::min();
    if (setting.smallest == any) return made;
    made.smallest = setting.smallest;
    made.largest = setting.largest;
    return made;
}

KnownSetting known(const TextSetting& setting) {
    return {to_utf8(setting.section),
            to_utf8(setting.key),
            to_utf8(setting.standard),
            std::nullopt,
            std::nullopt,
            std::string(setting.meaning)};
}

template <class... Each>
std::vector<KnownSetting> list_of(const Each&... settings) {
    return {known(settings)...};
}

}  // namespace

std::vector<KnownSetting> known_settings() {
    using namespace setting;
    std::vector<KnownSetting> all =
        list_of(max_jobs, resume, overwrite_rule, allocate_space, move_completed, mark_zone, start_all,
                save_interval, backup_to, data_folder, language, split_size, only_own_part, suspend_interval,
                max_per_server, connect_interval, connect_timeout, always_retry, retries, limit, speed_limit,
                connection_buffer, data_buffer, disk_buffer, ssh_buffer, verify_peer, ca_file, proxy,
                proxy_resolves, get_cookie, cookie_file, enable_feat, ftp_passive, nat_in_port, nat_address,
                binary_types, trace_list, dial_up_entry, dial_up_user, dial_up_password, monitor_torrent,
                monitor_ed2k, monitor_magnet, numwant, crypto, torrent_tracker, magnet_trackers);
    std::ranges::sort(all, {}, [](const KnownSetting& one) { return std::tie(one.section, one.key); });
    return all;
}

}  // namespace vantlow
