#include "engine/torrent_shelf.h"

#include <algorithm>

#include "base/codes.h"
#include "bt/peer_store.h"
#include "bt/wire.h"
#include "storage/torrent_documents.h"

namespace vantlow {
namespace {

constexpr std::size_t most_recent_bytes = 8UL * 1024 * 1024;
constexpr std::size_t most_facts = 10'000;

}  // namespace

FileError TorrentShelf::keep(const InfoHash& hash, std::span<const std::byte> document) {
    forget(hash);
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

std::vector<SocketAddress> TorrentShelf::find_nodes(const InfoHash& hash) const {
    CBEncode parser;
    parser.load_memory(find(hash));
    const auto document = parser.parse_document();
    CBEMetaInfo meta;
    std::vector<SocketAddress> nodes;
    if (!document || !parse_meta_info(parser, *document, {}, meta) || !is_known_by(meta.info, hash))
        return nodes;
    for (const DhtNode& node : meta.nodes) {
        std::string bytes(node.address.begin(), node.address.begin() + (node.is_ipv6 ? 16 : 4));
        put_number(bytes, node.port);
        nodes.push_back(node.is_ipv6 ? ipv6_peer(bytes) : ipv4_peer(bytes));
    }
    return nodes;
}

PieceLayers TorrentShelf::find_layers(const InfoHash& hash, const TorrentContent& content) const {
    return content.trees.empty() ? PieceLayers() : layers_of_document(find(hash), content);
}

FileError TorrentShelf::keep_layers(const InfoHash& hash, const PieceLayers& layers) {
    const std::string document = with_layers(find(hash), layers);
    return document.empty() ? FileError{FileFault::not_found, 0}
                            : keep(hash, std::as_bytes(std::span(document)));
}

std::string TorrentShelf::find_info(const InfoHash& hash) const {
    std::string info = find_recent(hash);
    if (!info.empty()) return info;
    info = info_of_document(find(hash));
    if (info.empty() || !is_known_by(info, hash)) return {};
    if (!folder_.empty()) remember(hash, info);
    return info;
}

std::string TorrentShelf::find_recent(const InfoHash& hash) const {
    const MutexLock guard(mutex_);
    const auto at =
        std::find_if(recent_.begin(), recent_.end(), [&](const auto& one) { return one.first == hash; });
    return at != recent_.end() ? at->second : std::string();
}

// A value cannot change under its digest, so what is remembered stays right until the document is dropped.
void TorrentShelf::remember(const InfoHash& hash, const std::string& info) const {
    if (info.size() > most_recent_bytes) return;
    const MutexLock guard(mutex_);
    recent_.emplace_back(hash, info);
    recent_bytes_ += info.size();
    for (; recent_bytes_ > most_recent_bytes; recent_.pop_front())
        recent_bytes_ -= recent_.front().second.size();
}

std::vector<std::string> TorrentShelf::find_http_seeds(const InfoHash& hash) const {
    return http_seeds_of_document(find(hash));
}

DocumentFacts TorrentShelf::find_facts(const InfoHash& hash) const {
    {
        const MutexLock guard(mutex_);
        if (const auto known = facts_.find(hash); known != facts_.end()) return known->second;
    }
    DocumentFacts facts = facts_of_document(find(hash));
    const MutexLock guard(mutex_);
    if (facts_.size() >= most_facts) facts_.clear();
    facts_[hash] = facts;
    return facts;
}

void TorrentShelf::forget(const InfoHash& hash) {
    const MutexLock guard(mutex_);
    facts_.erase(hash);
    std::erase_if(recent_, [&](const auto& one) VANTLOW_REQUIRES(mutex_) {
        if (one.first == hash) recent_bytes_ -= one.second.size();
        return one.first == hash;
    });
}

FileError TorrentShelf::drop(const InfoHash& hash) {
    forget(hash);
    if (!folder_.empty()) return remove_torrent_document(folder_, to_hex(hash));
    const MutexLock guard(mutex_);
    kept_.erase(hash);
    return {};
}

}  // namespace vantlow
