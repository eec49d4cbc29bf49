// Credentials from a .netrc file.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// What the file says of one machine. Bytes as they stand there.
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

/// Reads any bytes; words that it does not know are passed over. Words are parted by blanks and line ends; in
/// double quotes a word may hold blanks, and \" \\ \n \r \t. A `#` where no value is expected begins a
/// comment up to the line's end. The text of macros (`macdef`, up to an empty line) is skipped.
Netrc parse_netrc(std::string_view text);

/// The first entry for the host (case and the way of writing an international name do not matter) or for all
/// hosts; with a login that is not empty the first of them that is for this login or names none, and the
/// answer has it as its login.
std::optional<NetrcEntry> find_netrc(const Netrc& entries, std::string_view host,
                                     std::string_view login = {});

/// Credentials for a host and, unless it is empty, this login, from the user's file; none when it names none.
using CredentialLookup =
    std::function<std::optional<NetrcEntry>(const std::string& host, const std::string& login)>;

/// The user's .netrc (_netrc on Windows), read when it is asked for the first time. A file that is missing or
/// cannot be read names nobody.
CredentialLookup netrc_lookup();

}  // namespace vantlow
