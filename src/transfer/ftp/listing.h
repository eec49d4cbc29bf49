// One line of a server's listing: what it says of a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "transfer/ftp/reply.h"

namespace vantlow {

/// One file or folder, as a listing tells of it.
struct FtpEntry {
    std::string name;
    std::int64_t size = -1;  ///< bytes; -1: unsaid
    std::string time;        ///< as written, one blank between words; empty: unsaid
    bool is_folder = false;
};

/// Reads a line of the forms that servers use: Unix ("-rw-r--r-- 1 u g 12 Jan  1 10:00 name"), DOS
/// ("01-31-24  10:00AM  12 name"), EPLF ("+s12,m1700000000,\tname") and facts ("Size=12;Modify=...; name",
/// RFC 3659, 7). None for anything else.
std::optional<FtpEntry> parse_listing_line(std::string_view line);

/// The entry for the file among a STAT reply's lines (RFC 959, 4.1.3): the one of that name, or the only one
/// there is. Listings name a file as it was asked for or by its last part.
std::optional<FtpEntry> find_in_listing(const FtpReply& reply, std::string_view name);

}  // namespace vantlow
