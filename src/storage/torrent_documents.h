// The .torrent documents of jobs, kept in the data folder.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "platform/file.h"

namespace vantlow {

/// The largest document that is kept, in bytes.
inline constexpr std::size_t largest_torrent = 64 * 1024 * 1024;

/// "torrents/HASH.torrent" below the data folder. The hash is an info hash in lower case hexadecimal, 40
/// digits (BEP 3) or 64 (BEP 52); empty for anything else.
std::u16string torrent_document_path(const std::u16string& data_folder, const std::string& info_hash);

/// Keeps a document, for this user alone, as the job database is kept: readers see the old one or the new one
/// whole, also after a power cut. Whoever owns the data folder calls.
FileError save_torrent_document(const std::u16string& data_folder, const std::string& info_hash,
                                std::span<const std::byte> document);
/// That the bytes are those of the hash is for the reader to look at: this folder knows no bencoding.
FileError load_torrent_document(const std::u16string& data_folder, const std::string& info_hash,
                                std::vector<std::byte>& document);
/// Ok also where there is none.
FileError remove_torrent_document(const std::u16string& data_folder, const std::string& info_hash);

}  // namespace vantlow
