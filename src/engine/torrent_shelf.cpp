#include "engine/torrent_shelf.h"

#include "base/codes.h"
#include "bt/torrent_content.h"
#include "storage/torrent_documents.h"

namespace vantlow {

FileError TorrentShelf::keep(const InfoHash& hash, std::span<const std::byte> document) {
    if (!folder_.empty()) return save_torrent_document(folder_, to_hex(hash), document);
    const MutexLock guard(mutex_);
    kept_[hash].assign(document.begin(), document.end());
    return {};
}

std::vector<std::byte> TorrentShelf::find(const InfoHash& hash) const {
    std::vector<std::byte> document;
    if (!folder_.empty()) {
        if (!load_torrent_document(folder_, to_hex(hash), document).ok()) document.clear();
        return document;
    }
    const MutexLock guard(mutex_);
    const auto at = kept_.find(hash);
    return at != kept_.end() ? at->second : document;
}

std::vector<std::string> TorrentShelf::find_web_seeds(const InfoHash& hash) const {
    return web_seeds_of_document(find(hash));
}

std::string TorrentShelf::find_info(const InfoHash& hash) const {
    std::string info = info_of_document(find(hash));
    if (info.empty() || hash_of(info) != hash) info.clear();
    return info;
}

FileError TorrentShelf::drop(const InfoHash& hash) {
    if (!folder_.empty()) return remove_torrent_document(folder_, to_hex(hash));
    const MutexLock guard(mutex_);
    kept_.erase(hash);
    return {};
}

}  // namespace vantlow
