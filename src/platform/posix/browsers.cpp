// Manifests of native messaging hosts stand in a folder of each browser's own, named after the host.
#include "platform/browsers.h"

#include <algorithm>

#include "base/text.h"
#include "platform/process.h"

namespace vantlow {
namespace {

/// The places of a browser. A Flatpak and a Snap keep theirs elsewhere.
struct Places {
    std::string_view browser;
    bool in_config;  ///< `folder` is below the user's configuration folder, else below the home folder
    std::u16string_view folder;
    std::u16string_view flatpak;
    std::u16string_view snap;  ///< empty: there is none
};
constexpr std::array<Places, known_browsers.size()> places{{
    {"chrome", true, u"google-chrome", u"com.google.Chrome", u""},
    {"chromium", true, u"chromium", u"org.chromium.Chromium", u"chromium"},
    {"edge", true, u"microsoft-edge", u"com.microsoft.Edge", u""},
    {"brave", true, u"BraveSoftware/Brave-Browser", u"com.brave.Browser", u"brave"},
    {"vivaldi", true, u"vivaldi", u"com.vivaldi.Vivaldi", u"vivaldi"},
    {"firefox", false, u".mozilla", u"org.mozilla.firefox", u"firefox"},
    {"librewolf", false, u".librewolf", u"io.gitlab.librewolf-community", u""},
}};

const Places& places_of(const Browser& browser) {
    return *std::find_if(places.begin(), places.end(),
                         [&](const Places& its) { return its.browser == browser.name; });
}

bool is_folder(const std::u16string& path) {
    return path_kind(path) == PathKind::folder;
}

std::u16string folder_of_browser(const Places& its) {
    return join_path(its.in_config ? user_config_folder() : home_folder(), its.folder);
}

}  // namespace

bool has_browser(const Browser& browser) {
    const Places& its = places_of(browser);
    if (is_folder(folder_of_browser(its))) return true;
    // Newer versions of Firefox keep their profiles as the desktop's rules say, but read manifests where the
    // older ones do.
    return browser.name == "firefox" && is_folder(join_path(user_config_folder(), u"mozilla/firefox"));
}

std::vector<std::string_view> confined_forms(const Browser& browser) {
    const Places& its = places_of(browser);
    std::vector<std::string_view> forms;
    if (is_folder(join_path(join_path(home_folder(), u".var/app"), its.flatpak)))
        forms.emplace_back("Flatpak");
    if (!its.snap.empty() && is_folder(join_path(join_path(home_folder(), u"snap"), its.snap)))
        forms.emplace_back("Snap");
    return forms;
}

std::u16string host_manifest(const Browser& browser, std::u16string_view host) {
    const std::u16string_view hosts =
        browser.is_firefox ? u"native-messaging-hosts" : u"NativeMessagingHosts";
    const std::u16string folder = join_path(folder_of_browser(places_of(browser)), hosts);
    return join_path(folder, std::u16string(host) + u".json");
}

bool is_host_registered(const Browser& browser, std::u16string_view host) {
    return path_kind(host_manifest(browser, host)) == PathKind::file;
}

FileError register_host(const Browser& browser, std::u16string_view host,
                        std::span<const std::byte> manifest) {
    const std::u16string path = host_manifest(browser, host);
    if (FileError error = make_folders(folder_of(path)); !error.ok()) return error;
    return write_file_atomically(path, manifest);
}

FileError unregister_host(const Browser& browser, std::u16string_view host) {
    const FileError error = remove_file(host_manifest(browser, host));
    return error.fault == FileFault::not_found ? FileError{} : error;
}

}  // namespace vantlow
