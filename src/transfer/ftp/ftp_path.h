// The path of an FTP address: folder, file, transfer type (RFC 1738, 3.2.2).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// The parts of such a path.
struct FtpPath {
    std::string folder;  ///< as it goes on the wire; empty: where the login leads; "/..." from the root
    std::string file;    ///< empty: the address names a folder
    char type = 'i';     ///< of ";type=": 'i' binary, 'a' text, 'd' a folder's list
};

/// The path of an address ("/dir/name;type=i"), percent-decoded part by part. A leading "%2F" makes it
/// absolute; otherwise it begins where the login leads. None when a part holds a byte that would end or break
/// a command (CR, LF, NUL).
std::optional<FtpPath> parse_ftp_path(std::string_view path);

/// True when the name's extension stands in the list (".EXE;.ZIP"), letter case ignored: such a file is never
/// transferred as text.
bool is_binary_name(std::string_view name, std::string_view extensions) noexcept;

}  // namespace vantlow
