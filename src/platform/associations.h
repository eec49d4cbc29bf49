// What the desktop opens with this program: files and links, for the current user only.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace vantlow {

enum class Association {
    torrent_files,  ///< ".torrent"
    ed2k_links,
    magnet_links,
};

/// Makes `program` (a full path) what the kind is opened with, and remembers what was that before. Again for
/// another path: the new one counts.
FileError associate(Association kind, const std::u16string& program);
/// Takes it back: what was before is that again. Nothing where it is not associated with this program.
FileError dissociate(Association kind);

/// The clipboard formats in which links are dragged or pasted onto the program.
inline constexpr std::array<std::u16string_view, 6> link_formats{
    u"FileGroupDescriptor",     u"FileGroupDescriptorW", u"UniformResourceLocator",
    u"UniformResourceLocatorW", u"HTML Format",          u"HTML Text"};
/// Registers them with the system: their numbers, in that order, 0 for one that was refused. All 0 where the
/// clipboard has no such numbers.
std::array<unsigned, link_formats.size()> register_link_formats() noexcept;

}  // namespace vantlow
