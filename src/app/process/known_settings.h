// Every setting that the program reads, as it is described to people, and values for one run.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/setting_table.h"

namespace vantlow {

class Settings;

namespace setting {
/// The window as its user left it; in the window's own form.
inline constexpr TextSetting window_layout{u"Window", u"Layout", u"", ""};
inline constexpr NumberSetting close_to_tray{
    u"Window", u"CloseToTray",
    0,         0,
    1,         "1: closing the window leaves its sign in the tray, and downloads go on"};
inline constexpr NumberSetting watch_clipboard{
    u"Window", u"WatchClipboard", 0, 0, 1, "1: links that other programs copy are offered for download"};
inline constexpr TextSetting clipboard_endings{
    u"Window", u"ClipboardEndings", u"",
    "the endings and servers of the links that are offered then (\".iso .zip example.org\"), with blanks "
    "between; empty: all links"};
inline constexpr NumberSetting tell_ends{
    u"Window", u"Notify", 1,
    0,         1,         "1: a notification reports downloads that ended while the window was not in front"};
inline constexpr NumberSetting start_with_session{
    u"Window", u"StartWithSession",
    0,         0,
    1,         "1: Vantlow starts when this user logs in, with its window minimised or in the tray"};
/// The questions of the first start were asked.
inline constexpr NumberSetting welcomed{u"Window", u"Welcomed", 0, 0, 1, ""};
/// The width of the list of pieces, device-independent pixels.
inline constexpr NumberSetting combine_width{u"Window", u"CombineMediaWidth", 460, 120, 4000, ""};

// Questions that can be switched off.
inline constexpr NumberSetting confirm_end{
    u"Confirmation", u"Downloading", 1, 0, 1, "1: ending Vantlow is asked about while downloads run"};
inline constexpr NumberSetting confirm_removal{
    u"Confirmation", u"Remove", 1, 0, 1, "1: removing downloads is asked about"};
inline constexpr NumberSetting confirm_start_over{
    u"Confirmation",
    u"StartOver",
    1,
    0,
    1,
    "1: starting downloads over is asked about where that erases something"};

// The control API of the resident program (docs/remote.md).
inline constexpr NumberSetting rpc_enable{
    u"RPC", u"Enable", 0, 0, 1, "1: the resident program can be steered by other programs (docs/remote.md)"};
inline constexpr NumberSetting rpc_port{u"RPC", u"Port", 6800,
                                        1,      65535,   "the TCP port at which it listens for them"};
inline constexpr TextSetting rpc_listen{u"RPC", u"Listen", u"127.0.0.1",
                                        "the addresses of this machine at which it listens, with blanks "
                                        "between; a name among them is one by which "
                                        "the machine may be called"};
inline constexpr TextSetting rpc_secret{u"RPC", u"Secret", u"",
                                        "the secret that other programs have to show; empty: one is made at "
                                        "the first use, \"vantlow rpc secret\" "
                                        "shows it; \"none\": nobody is asked"};
inline constexpr TextSetting rpc_allow_origin{
    u"RPC", u"AllowOrigin", u"",
    "the web pages that may use it (\"https://host\"), with blanks between; \"*\": all"};
inline constexpr NumberSetting rpc_tls{u"RPC", u"TLS", 0,
                                       0,      1,      "1: it is reached over TLS (https, wss) only"};
inline constexpr TextSetting rpc_certificate{
    u"RPC", u"Certificate", u"",
    "the file with its certificate and those of the issuers, PEM; empty: the program makes one of its own"};
inline constexpr TextSetting rpc_key{
    u"RPC", u"Key", u"",
    "the file with the certificate's private key, PEM; empty: it stands in that one, too"};
inline constexpr NumberSetting rpc_request_size{
    u"RPC", u"RequestSize", 16384, 64, 262144, "KiB; the largest request, such as one that brings a torrent"};
}  // namespace setting

/// One setting, UTF-8.
struct KnownSetting {
    std::string section;
    std::string key;
    std::string standard;
    bool is_number;
    std::optional<std::int64_t> smallest;  ///< none: any number, or a text
    std::optional<std::int64_t> largest;
    std::string meaning;  ///< empty: it changes nothing that can be seen yet, so it is described nowhere

    [[nodiscard]] std::string name() const { return section + "/" + key; }
    /// Returns " (1 to 64)"; an empty text without bounds.
    [[nodiscard]] std::string bounds_text() const;
};

/// Returns all of them, by section and key.
std::vector<KnownSetting> known_settings();

/// True for a text that is a time of day (parse_time_of_day()).
bool is_time_of_day(const KnownSetting& setting);

/// Finds the setting of this name ("Section/Key", in any letter case); none when there is no such.
std::optional<KnownSetting> find_setting(std::string_view name);
/// Returns "There is no setting NAME.", and the names that it may have been meant for.
std::string no_such_setting(std::string_view name);
/// Complains of a value for a setting (both UTF-8): no such setting, or a text where a number is wanted.
/// Nothing for a number out of bounds: its reader takes the nearest one within.
std::optional<std::string> complaint_of(std::string_view name, std::string_view value);

/// Returns the value as it may stand on a screen or in an answer: without secrets.
std::string shown_value(std::u16string_view section, std::u16string_view key, const std::u16string& value);

/// Puts values ("Section/Key=Value", as --set takes them) over the store's, for this run only; returns a
/// sentence where one of them is wrong.
std::optional<std::string> apply_overrides(const std::vector<std::string>& entries, Settings& settings);

}  // namespace vantlow
