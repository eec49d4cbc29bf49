#include "storage/torrent_documents.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {

std::u16string torrent_document_path(const std::u16string& data_folder, const std::string& info_hash) {
    const bool fits = info_hash.size() == 40 || info_hash.size() == 64;
    if (!fits || info_hash.find_first_not_of("0123456789abcdef") != std::string::npos) return {};
    return join_path(join_path(data_folder, u"torrents"), to_utf16(info_hash + ".torrent"));
}

FileError save_torrent_document(const std::u16string& data_folder, const std::string& info_hash,
                                std::span<const std::byte> document) {
    const std::u16string path = torrent_document_path(data_folder, info_hash);
    if (path.empty()) return {FileFault::other, 0};
    if (document.size() > largest_torrent) return {FileFault::too_large, 0};
    // Where the data folder is gone nothing is made in its place.
    if (path_kind(data_folder) != PathKind::folder) return {FileFault::folder_lost, 0};
    const std::u16string folder(folder_of(path));
    if (path_kind(folder) != PathKind::folder) {
        if (FileError error = make_folders(folder); !error.ok()) return error;
        if (FileError error = sync_folder(data_folder); !error.ok()) return error;
    }
    return write_file_atomically(path, document, Privacy::owner_only);
}

FileError load_torrent_document(const std::u16string& data_folder, const std::string& info_hash,
                                std::vector<std::byte>& document) {
    const std::u16string path = torrent_document_path(data_folder, info_hash);
    if (path.empty()) return {FileFault::not_found, 0};
    return read_file(path, largest_torrent, document);
}

FileError remove_torrent_document(const std::u16string& data_folder, const std::string& info_hash) {
    const std::u16string path = torrent_document_path(data_folder, info_hash);
    if (path.empty()) return {};
    const FileError error = remove_file(path);
    return error.fault == FileFault::not_found ? FileError{} : error;
}

}  // namespace vantlow
