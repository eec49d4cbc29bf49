// Hosts of native messaging stand in the registry of the user: the default value of a key, which is named
// after the host, is the path of the manifest.
#include "platform/browsers.h"

#include <algorithm>
#include <optional>

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/process.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

/// The places of a browser. Some read the entries of the one that they are made of, and have none of their
/// own.
struct Places {
    std::string_view browser;
    std::u16string_view vendor;  ///< below HKEY_CURRENT_USER\Software
    std::string_view variable;   ///< of the environment: the folder that `profile` is below
    std::u16string_view profile;
};
constexpr std::array<Places, known_browsers.size()> places{{
    {"chrome", u"Google\\Chrome", "LOCALAPPDATA", u"Google\\Chrome\\User Data"},
    {"chromium", u"Chromium", "LOCALAPPDATA", u"Chromium\\User Data"},
    {"edge", u"Microsoft\\Edge", "LOCALAPPDATA", u"Microsoft\\Edge\\User Data"},
    {"brave", u"Google\\Chrome", "LOCALAPPDATA", u"BraveSoftware\\Brave-Browser\\User Data"},
    {"vivaldi", u"Google\\Chrome", "LOCALAPPDATA", u"Vivaldi\\User Data"},
    {"firefox", u"Mozilla", "APPDATA", u"Mozilla\\Firefox"},
    {"librewolf", u"Mozilla", "APPDATA", u"librewolf"},
}};

const Places& places_of(const Browser& browser) {
    return *std::find_if(places.begin(), places.end(),
                         [&](const Places& its) { return its.browser == browser.name; });
}

std::u16string key_of(const Browser& browser, std::u16string_view host) {
    return u"Software\\" + std::u16string(places_of(browser).vendor) + u"\\NativeMessagingHosts\\" +
           std::u16string(host);
}

std::optional<std::u16string> registered_path(const Browser& browser, std::u16string_view host) {
    const std::u16string key = key_of(browser, host);
    if (ask_hook(Operation::read_setting, key) != 0) return std::nullopt;
    std::wstring text(32768, L'\0');
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    const LSTATUS error =
        RegGetValueW(HKEY_CURRENT_USER, wide(key), nullptr, RRF_RT_REG_SZ, nullptr, text.data(), &size);
    if (error != ERROR_SUCCESS) return std::nullopt;
    return from_wide(text.substr(0, text.find(L'\0')));
}

// The manifest that this program writes for a place: "chromium" for Software\Chromium.
std::u16string own_manifest(const Browser& browser, std::u16string_view host) {
    std::u16string vendor(places_of(browser).vendor);
    for (char16_t& c : vendor) {
        if (c == u'\\') c = u'-';
    }
    return join_path(join_path(user_data_folder(), u"NativeMessagingHosts"),
                     std::u16string(host) + u"." + vendor + u".json");
}

}  // namespace

bool has_browser(const Browser& browser) {
    const Places& its = places_of(browser);
    const auto base = environment(its.variable);
    return base && path_kind(join_path(*base, its.profile)) == PathKind::folder;
}

std::vector<std::string_view> confined_forms(const Browser& /*browser*/) {
    return {};
}

std::u16string host_manifest(const Browser& browser, std::u16string_view host) {
    const auto path = registered_path(browser, host);
    return path ? *path : own_manifest(browser, host);
}

bool is_host_registered(const Browser& browser, std::u16string_view host) {
    return registered_path(browser, host).has_value();
}

// The file comes first: an entry never names one that is not there.
FileError register_host(const Browser& browser, std::u16string_view host,
                        std::span<const std::byte> manifest) {
    const std::u16string path = own_manifest(browser, host);
    if (FileError error = make_folders(folder_of(path)); !error.ok()) return error;
    if (FileError error = write_file_atomically(path, manifest); !error.ok()) return error;
    const std::u16string key = key_of(browser, host);
    if (const int error = ask_hook(Operation::write_setting, key); error != 0)
        return file_error(static_cast<DWORD>(error));
    const auto size = static_cast<DWORD>((path.size() + 1) * sizeof(char16_t));
    return file_error(static_cast<DWORD>(
        RegSetKeyValueW(HKEY_CURRENT_USER, wide(key), nullptr, REG_SZ, path.c_str(), size)));
}

FileError unregister_host(const Browser& browser, std::u16string_view host) {
    const std::u16string key = key_of(browser, host);
    if (const int error = ask_hook(Operation::write_setting, key); error != 0)
        return file_error(static_cast<DWORD>(error));
    const LSTATUS error = RegDeleteKeyW(HKEY_CURRENT_USER, wide(key));
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) return file_error(static_cast<DWORD>(error));
    const FileError removed = remove_file(own_manifest(browser, host));
    return removed.fault == FileFault::not_found ? FileError{} : removed;
}

}  // namespace vantlow
