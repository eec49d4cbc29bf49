// The file name that a response or an address suggests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantlow {

/// The name in a content-disposition field: "filename*=" (RFC 8187: UTF-8 or ISO-8859-1), else "filename="
/// (RFC 6266; quoted or not, raw bytes as decode_name() reads them; percent-encoded ones are decoded). A
/// "filename*=" that cannot be read gives way to "filename=". Empty when there is none. The name is as the
/// server sent it: make it safe before use.
std::u16string disposition_name(std::string_view field);

/// The size in a content-disposition field (RFC 2183, 2.7), in bytes, which may be approximate; -1 where
/// there is none.
std::int64_t disposition_size(std::string_view field);

/// Raw bytes of a name as text: UTF-8 when they are, else in the ANSI code page where that is another one,
/// else Latin-1.
std::u16string decode_name(std::string_view bytes);

/// The last part of an address's path, percent-decoded; empty when the path ends with a slash.
std::u16string path_name(std::string_view path);

/// True for what is a gzip file by its media type (lower case, without parameters) or its name: servers label
/// it as gzip-coded, and it is not to be unpacked.
bool is_gzip_file(std::string_view media_type, std::u16string_view name);

}  // namespace vantlow
