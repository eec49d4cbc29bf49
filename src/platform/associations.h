// The desktop's knowledge of this program, for the current user only: the files and links that it opens with
// it (associations), and whether it starts it with the user's session.
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

/// Makes `program` (a full path) the one that opens this kind, and remembers what stood there before. Another
/// call with another path replaces the first.
FileError associate(Association kind, const std::u16string& program);
/// Takes the association back: everything that it replaced stands there again. Does nothing where the kind is
/// not associated with this program.
FileError dissociate(Association kind);

/// Has the desktop start `program` (a full path) with these words whenever this user logs in; another call
/// replaces the first. By freedesktop.org's desktop application autostart specification, or the registry.
FileError start_with_session(const std::u16string& program, const std::string& words);
/// Takes that back; does nothing where it is not so.
FileError stop_starting_with_session();

/// The clipboard formats in which links are dragged or pasted onto the program.
inline constexpr std::array<std::u16string_view, 6> link_formats{
    u"FileGroupDescriptor",     u"FileGroupDescriptorW", u"UniformResourceLocator",
    u"UniformResourceLocatorW", u"HTML Format",          u"HTML Text"};
/// Registers the formats with the system and returns their numbers, in that order; 0 stands for one that was
/// refused. All are 0 on a system whose clipboard has no such numbers.
std::array<unsigned, link_formats.size()> register_link_formats() noexcept;

}  // namespace vantlow
