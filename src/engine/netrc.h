// Credentials from a .netrc file.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// The file's entry for one machine, its bytes unchanged.
struct NetrcEntry {
    std::string machine;      ///< host name
    bool is_default = false;  ///< for every host, `machine` is empty
    std::string login;        ///< empty: unsaid
    std::string password;     ///< empty: unsaid
};

/// In the order of the file.
using Netrc = std::vector<NetrcEntry>;

/// More entries than these are left out.
inline constexpr std::size_t most_netrc_entries = 10000;

/// Reads any bytes; unknown words are skipped. Words are separated by blanks and line ends; in double quotes
/// a word may hold blanks, and \" \\ \n \r \t. A `#` where no value is expected begins a comment up to the
/// line's end. The text of macros (`macdef`, up to an empty line) is skipped.
Netrc parse_netrc(std::string_view text);

/// The first entry for the host (letter case and the form of an international name do not matter) or for all
/// hosts. With a `login` that is not empty: the first of them that is for this login or names none; the
/// result then has this login.
std::optional<NetrcEntry> find_netrc(const Netrc& entries, std::string_view host,
                                     std::string_view login = {});

/// Looks up the credentials in the user's file for a host and, unless it is empty, this login; none when the
/// file has none.
using CredentialLookup =
    std::function<std::optional<NetrcEntry>(const std::string& host, const std::string& login)>;

/// A look-up in the user's .netrc (_netrc on Windows), which is read at the first call. A file that is
/// missing or cannot be read has no entries.
CredentialLookup netrc_lookup();

}  // namespace vantlow
