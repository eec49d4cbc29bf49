// The services of the user's desktop: the bin, opening files and addresses, free space, the language.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/file.h"

namespace vantlow {

/// The language of the user's session as "de-AT" or "zh-CN" (RFC 5646); empty where none is set.
std::string user_language();

/// The bytes that this user may still write into the folder, or into its nearest parent that exists; none
/// where the system does not say.
std::optional<std::int64_t> free_space(const std::u16string& folder);

/// Opens a file or a folder (an absolute path), or a web address, with the desktop's program for it. Returns
/// once that was started; what becomes of it is not known. Fails with `not_found` where there is no such
/// file, or no desktop that could open it, and for anything else than an absolute path or an http(s) address.
FileError open_with_desktop(const std::u16string& target);
/// Opens the folder of a file, with the file selected where the desktop can do that.
FileError show_in_folder(const std::u16string& path);

/// A file in the bin, as take_from_bin() finds it again.
struct BinItem {
    std::u16string from;    ///< where it stood
    std::u16string in_bin;  ///< where it stands now; empty: not known, it cannot be taken back from here
    std::u16string note;    ///< the file that describes it there; may be empty
};
/// Moves a file into the user's bin (Trash of freedesktop.org 1.0; the recycle bin on Windows). Where its
/// file system has no bin that this user may write, the call fails; Windows asks the user then.
FileError move_to_bin(const std::u16string& path, BinItem& item);
/// Puts the file back to where it stood; fails with `exists` when something else is there now, with
/// `not_found` when it is not in the bin any more or its place is not known.
FileError take_from_bin(const BinItem& item);

}  // namespace vantlow
