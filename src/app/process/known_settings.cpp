#include "app/process/known_settings.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <tuple>
#include <utility>

#include "base/text.h"
#include "bt/torrent_settings.h"
#include "engine/schedule_texts.h"
#include "store/address.h"
#include "store/settings.h"

namespace vantlow {
namespace {

KnownSetting known(const NumberSetting& setting) {
    KnownSetting made{to_utf8(setting.section),
                      to_utf8(setting.key),
                      std::to_string(setting.standard),
                      true,
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
            false,
            std::nullopt,
            std::nullopt,
            std::string(setting.meaning)};
}

template <class... Each>
std::vector<KnownSetting> list_of(const Each&... settings) {
    return {known(settings)...};
}

std::string lower(std::string_view text) {
    std::string made(text);
    std::ranges::transform(made, made.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    return made;
}

// Counts the characters that have to be put in, left out or changed to make one of the other (Levenshtein).
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

// Returns a small number for a setting that a name may have been meant for: mistyped, in another section, or
// a part of the key.
std::size_t strangeness(const KnownSetting& setting, std::string_view name) {
    const auto slash = name.find('/');
    const std::string key = lower(name.substr(slash == std::string_view::npos ? 0 : slash + 1));
    const std::string own = lower(setting.key);
    const std::size_t by_key = distance(own, key) + 1;
    const bool part = key.size() >= 4 && (own.find(key) != std::string::npos || key.find(own) == 0);
    return std::min({distance(lower(setting.name()), lower(name)), by_key, part ? 2 : by_key});
}

}  // namespace

std::string KnownSetting::bounds_text() const {
    if (!smallest) return {};
    return " (" + std::to_string(*smallest) + " to " + std::to_string(*largest) + ")";
}

bool is_time_of_day(const KnownSetting& setting) {
    const auto is = [&setting](const TextSetting& one) {
        return setting.section == to_utf8(one.section) && setting.key == to_utf8(one.key);
    };
    return is(setting::start_time) || is(setting::stop_time);
}

std::optional<KnownSetting> find_setting(std::string_view name) {
    for (KnownSetting& setting : known_settings()) {
        if (lower(setting.name()) == lower(name)) return std::move(setting);
    }
    return std::nullopt;
}

std::string no_such_setting(std::string_view name) {
    constexpr std::size_t at_most = 3;
    constexpr std::size_t longest_name = 100;
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const KnownSetting& setting : known_settings()) {
        if (setting.meaning.empty() || name.size() > longest_name) continue;
        const std::size_t far = strangeness(setting, name);
        if (far <= std::max<std::size_t>(2, setting.key.size() / 3)) near.emplace_back(far, setting.name());
    }
    std::ranges::stable_sort(near, {}, &std::pair<std::size_t, std::string>::first);
    if (near.size() > at_most) near.resize(at_most);
    std::string text = "There is no setting " + std::string(name) + ".";
    for (const auto& [far, nearest] : near)
        text += (far == near[0].first && nearest == near[0].second ? " Did you mean " : " or ") + nearest;
    return text + (near.empty() ? " \"vantlow settings describe\" lists all of them." : "?");
}

std::optional<std::string> complaint_of(std::string_view name, std::string_view value) {
    const auto setting = find_setting(name);
    if (!setting) return no_such_setting(name);
    if (is_time_of_day(*setting) && !parse_time_of_day(value))
        return setting->name() + " takes a time of day (22:00), not \"" + std::string(value) + "\".";
    if (!setting->is_number || read_setting_number(to_utf16(value))) return std::nullopt;
    return setting->name() + " takes a number" + setting->bounds_text() + ", not \"" + std::string(value) +
           "\".";
}

std::vector<KnownSetting> known_settings() {
    using namespace setting;
    std::vector<KnownSetting> all = list_of(
        max_jobs, resume, overwrite_rule, allocate_space, move_completed, mark_zone, start_all, save_interval,
        backup_to, data_folder, language, split_size, only_own_part, suspend_interval, max_per_server,
        connect_interval, connect_timeout, always_retry, retries, limit, speed_limit, connection_buffer,
        data_buffer, disk_buffer, ssh_buffer, verify_peer, ca_file, proxy, proxy_resolves, get_cookie,
        cookie_file, enable_feat, ftp_passive, follow_pasv, nat_in_port, nat_address, binary_types,
        trace_list, dial_up_entry, dial_up_user, dial_up_password, monitor_torrent, monitor_ed2k,
        monitor_magnet, close_to_tray, watch_clipboard, clipboard_endings, rpc_enable, rpc_port, rpc_listen,
        rpc_secret, rpc_allow_origin, rpc_tls, rpc_certificate, rpc_key, rpc_request_size, tell_ends,
        start_with_session, welcomed, combine_width, confirm_end, confirm_removal, confirm_start_over,
        numwant, crypto, most_peers, most_peers_of_all, upload_limit, peer_exchange, dht, dht_nodes, utp,
        peer_port, local_discovery, ip_filter, ip_filter_file, network_interface, port_mapping,
        torrent_tracker, magnet_trackers, tracker_list, seed_ratio, seed_time, window_layout, week,
        start_time, stop_time);
    std::ranges::sort(all, {}, [](const KnownSetting& one) { return std::tie(one.section, one.key); });
    return all;
}

std::string shown_value(std::u16string_view section, std::u16string_view key, const std::u16string& value) {
    const auto is = [&](const TextSetting& setting) {
        return iequals(section, setting.section) && iequals(key, setting.key);
    };
    const bool is_secret = is(setting::dial_up_password) || is(setting::rpc_secret);
    if (is_secret && !value.empty()) return "********";
    if (is(setting::proxy)) return to_utf8(without_credentials(value));
    return to_utf8(value);
}

std::optional<std::string> apply_overrides(const std::vector<std::string>& entries, Settings& settings) {
    for (const std::string& entry : entries) {
        const auto slash = entry.find('/');
        const auto equals = entry.find('=', slash == std::string::npos ? 0 : slash);
        if (slash == std::string::npos || slash == 0 || equals == std::string::npos || equals == slash + 1) {
            return "--set takes Section/Key=Value, not \"" + entry + "\".";
        }
        if (const auto complaint = complaint_of(entry.substr(0, equals), entry.substr(equals + 1)))
            return "--set: " + *complaint;
        settings.override_value(to_utf16(entry.substr(0, slash)),
                                to_utf16(entry.substr(slash + 1, equals - slash - 1)),
                                to_utf16(entry.substr(equals + 1)));
    }
    return std::nullopt;
}

}  // namespace vantlow
