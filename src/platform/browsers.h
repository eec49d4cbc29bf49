// The browsers of this user, and where each looks up the programs that its extensions may speak with (native
// messaging hosts).
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"

namespace vantlow {

/// One of the browsers below. Chromium's family names the extensions of a host by their origins, Firefox's
/// by their ids, so that each family has its own form of manifest.
struct Browser {
    std::string_view name;   ///< as people type it
    std::string_view title;  ///< as it calls itself
    bool is_firefox;         ///< of Firefox's family
};
/// All browsers that the functions below know.
inline constexpr std::array<Browser, 7> known_browsers{{
    {"chrome", "Google Chrome", false},
    {"chromium", "Chromium", false},
    {"edge", "Microsoft Edge", false},
    {"brave", "Brave", false},
    {"vivaldi", "Vivaldi", false},
    {"firefox", "Firefox", true},
    {"librewolf", "LibreWolf", true},
}};

/// Whether this user has used the browser: it has a folder of its own here.
bool has_browser(const Browser& browser);
/// The forms in which this user also has the browser and in which it may start no program of the system, as
/// people call them: "Flatpak", "Snap".
std::vector<std::string_view> confined_forms(const Browser& browser);

/// The manifest file of a host that the browser would read; where none is registered, the one that
/// register_host() would write. Browsers that share one place (Windows) share the manifest.
std::u16string host_manifest(const Browser& browser, std::u16string_view host);
/// Whether the browser finds the host's manifest.
bool is_host_registered(const Browser& browser, std::u16string_view host);
/// Writes the manifest (JSON, UTF-8) where the browser finds it, in place of an earlier one.
FileError register_host(const Browser& browser, std::u16string_view host,
                        std::span<const std::byte> manifest);
/// Takes back what register_host() did; ok where nothing is registered.
FileError unregister_host(const Browser& browser, std::u16string_view host);

}  // namespace vantlow
