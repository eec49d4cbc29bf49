#include "engine/plans.h"

#include <algorithm>

#include "base/codes.h"
#include "base/text.h"
#include "bt/magnet.h"
#include "bt/torrent_content.h"
#include "engine/selection.h"
#include "meta/playlist.h"
#include "store/address.h"
#include "store/job.h"

namespace vantlow {
namespace {

JobPlans refuse(DraftFault::Kind why, std::u16string subject = {}) {
    JobPlans plans;
    plans.faults.push_back({why, std::move(subject)});
    return plans;
}

// The schemes that a file from elsewhere may make this program fetch as a mirror.
bool is_mirror(std::string_view url) noexcept {
    for (const std::string_view scheme : {"http://", "https://", "ftp://", "ftps://", "sftp://"}) {
        if (istarts_with(url, scheme)) return true;
    }
    return false;
}

// The strongest digest: of several hashes one is enough.
std::optional<ExpectedHash> strongest(const std::vector<MetalinkHash>& hashes) {
    const auto best = std::max_element(hashes.begin(), hashes.end(), [](const auto& a, const auto& b) {
        return static_cast<int>(a.kind) < static_cast<int>(b.kind);
    });
    if (best == hashes.end()) return std::nullopt;
    return ExpectedHash{best->kind, best->digest};
}

// Piece hashes that contradict the size would call every file wrong.
std::optional<PieceHashes> usable_pieces(const CMetalinkNode& file) {
    if (file.hash_type == CMetalinkNode::no_hashes || file.piece_length <= 0) return std::nullopt;
    const std::int64_t length = file.piece_length;
    if (file.size >= 0 && (file.size + length - 1) / length != file.piece_count) return std::nullopt;
    return PieceHashes{digest_of(file.hash_type), length, file.piece_hashes};
}

std::string shown_name(const CMetalinkNode& file, std::size_t index) {
    return file.name.empty() ? "#" + std::to_string(index + 1) : file.name;
}

void add_fault(JobPlans& plans, DraftFault::Kind kind, std::string item) {
    plans.faults.push_back({kind, {}, std::move(item)});
}

void plan_mirrors(const CMetalinkNode& file, std::size_t index, JobPlans& plans) {
    auto sources = std::make_shared<JobSources>();
    for (const std::string& url : file.urls) {
        const std::u16string address = to_utf16(url);
        const auto& known = sources->mirrors;
        const bool is_new = std::find(known.begin(), known.end(), address) == known.end();
        if (is_mirror(url) && is_new) sources->mirrors.push_back(address);
    }
    if (sources->mirrors.empty()) {
        add_fault(plans, DraftFault::Kind::no_address, shown_name(file, index));
        return;
    }
    sources->size = file.size;
    sources->whole = strongest(file.hashes);
    sources->pieces = usable_pieces(file);
    JobPlan plan;
    plan.address = sources->mirrors.front();
    plan.name = to_utf16(file.name);
    plan.size = file.size;
    plan.sources = std::move(sources);
    plans.plans.push_back(std::move(plan));
}

void append(JobPlans& plans, JobPlans more) {
    std::move(more.faults.begin(), more.faults.end(), std::back_inserter(plans.faults));
    std::move(more.plans.begin(), more.plans.end(), std::back_inserter(plans.plans));
}

JobPlans nothing_chosen(const DocumentOptions& options) {
    JobPlans plans;
    add_fault(plans, DraftFault::Kind::not_chosen,
              options.fragment.empty() ? options.select : to_utf8(options.fragment));
    return plans;
}

std::string absolute_url(const CMetafileNode& clip, const std::u16string& origin) {
    if (clip.url.find("://") != std::string::npos) return clip.url;
    const std::string base = clip.base.empty() ? to_utf8(origin) : clip.base;
    if (base.find("://") == std::string::npos) return {};
    // The part of the base behind its last slash is dropped; a path from the root replaces the whole path.
    const auto server_end = std::min(base.find('/', base.find("://") + 3), base.size());
    if (clip.url.starts_with('/')) return base.substr(0, server_end) + clip.url;
    const auto slash = base.rfind('/');
    return (slash > server_end || slash == server_end ? base.substr(0, slash) : base.substr(0, server_end)) +
           "/" + clip.url;
}

JobPlans plan_clips(const Playlist& list, const DocumentOptions& options) {
    JobPlans plans;
    const auto chosen =
        select(options.fragment.empty() ? options.select : to_utf8(options.fragment), list.clips.size());
    if (!chosen) return nothing_chosen(options);
    for (const std::size_t index : *chosen) {
        const CMetafileNode& clip = list.clips[index];
        const std::string url = absolute_url(clip, options.origin);
        if (link_kind(to_utf16(url)) != LinkKind::transfer || url.empty()) {
            add_fault(plans, DraftFault::Kind::not_fetchable, clip.url);
            continue;
        }
        JobPlan plan;
        plan.address = to_utf16(url);
        plan.comment = to_utf16(clip.title);
        plans.plans.push_back(std::move(plan));
    }
    return plans;
}

bool has_suffix(std::u16string_view name, std::u16string_view suffix) noexcept {
    return name.size() >= suffix.size() && iequals(name.substr(name.size() - suffix.size()), suffix);
}

}  // namespace

namespace {

// A private torrent is nobody's but its own trackers' (BEP 27). One without trackers says so, so that it does
// not get those of magnet links.
std::string address_of_torrent(const CBEDictionary& document, const CBEMetaInfo& meta) {
    const CBEDictionary* const info = document.find_dictionary("info");
    const CBEInteger* const is_private = info != nullptr ? info->find_integer("private") : nullptr;
    const bool has_own =
        document.find_string("announce") != nullptr || document.find("announce-list") != nullptr;
    std::vector<std::string> trackers = meta.trackers;
    std::erase(trackers, std::string());
    if (!has_own && is_private != nullptr && is_private->value == 1) trackers.clear();
    const std::string link = make_magnet(hashes_of(meta), to_utf8(meta.name()), trackers);
    return trackers.empty() ? with_trackers(link, trackers) : link;
}

}  // namespace

JobPlans read_torrent_plan(std::span<const std::byte> bytes, const DocumentOptions& options) {
    CBEncode parser;
    if (!parser.load_memory(bytes)) return refuse(DraftFault::Kind::no_memory);
    const auto document = parser.parse_document();
    CBEMetaInfo meta;
    const MetaInfoRules rules_of_reading{options.default_tracker};
    if (!document || !parse_meta_info(parser, *document, rules_of_reading, meta))
        return refuse(DraftFault::Kind::no_torrent);
    if (meta.info.empty()) return refuse(DraftFault::Kind::no_info_hash);
    const auto total = meta.total_size();
    if (!total) return refuse(DraftFault::Kind::wrong_sizes);
    JobPlan plan;
    plan.address = to_utf16(address_of_torrent(*document, meta));
    plan.name = in_one_part(meta.name());
    plan.size = *total;
    // Other faults of a torrent are reported by its job.
    if (const auto content = read_torrent_content(meta.info)) {
        JobRules rules;
        rules.select = options.select;
        const auto choice = choice_of(*content, &rules);
        if (!choice && options.select.empty()) return refuse(DraftFault::Kind::nothing);  // padding alone
        if (!choice) return nothing_chosen({options.origin, {}, options.select});
        plan.size = 0;
        for (std::size_t i = 0; i < content->files.size(); ++i)
            plan.size += choice->files[i] != FilePriority::skip ? content->files[i].length : 0;
    }
    plan.torrent =
        std::make_shared<const std::string>(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    JobPlans plans;
    plans.plans.push_back(std::move(plan));
    return plans;
}

JobPlans plan_magnet(const std::u16string& address) {
    const std::string link = to_utf8(address);
    const auto magnet = parse_magnet(link, {});
    if (!magnet) return refuse(DraftFault::Kind::no_info_hash, address);
    JobPlan plan;
    plan.address = address;
    plan.name = in_one_part(to_utf16(percent_decode(magnet->name)));
    if (plan.name.empty()) plan.name = to_utf16(to_hex(magnet->info_hash));
    JobPlans plans;
    plans.plans.push_back(std::move(plan));
    return plans;
}

std::u16string shown_torrent(std::u16string_view address) {
    const auto magnet = parse_magnet(to_utf8(address), {});
    if (!magnet) return std::u16string(address);
    return to_utf16(make_magnet(*magnet, percent_decode(magnet->name), {}));
}

std::optional<std::vector<std::size_t>> choose_files(const std::vector<CMetalinkNode>& files,
                                                     const DocumentOptions& options) {
    if (options.fragment.empty()) return select(options.select, files.size());
    const std::string fragment = to_utf8(options.fragment);
    for (const std::string& name : {fragment, percent_decode(fragment)}) {
        const auto named = std::find_if(files.begin(), files.end(),
                                        [&](const CMetalinkNode& file) { return file.name == name; });
        if (named != files.end())
            return std::vector<std::size_t>{static_cast<std::size_t>(named - files.begin())};
    }
    const auto number = parse_decimal(fragment);
    if (!number || *number < 1 || static_cast<std::uint64_t>(*number) > files.size()) return std::nullopt;
    return std::vector<std::size_t>{static_cast<std::size_t>(*number - 1)};
}

JobPlans read_metalink(std::span<const std::byte> bytes, const DocumentOptions& options) {
    const CMetalink metalink(bytes);
    if (metalink.files().empty()) return {};
    const auto chosen = choose_files(metalink.files(), options);
    if (!chosen) return nothing_chosen(options);
    JobPlans plans;
    for (const std::size_t index : *chosen) {
        const CMetalinkNode& file = metalink.files()[index];
        const bool is_peer_link = !file.plain && !file.urls.empty();
        if (is_peer_link && link_kind(to_utf16(file.urls.front())) != LinkKind::unknown) {
            append(plans, plan_link(to_utf16(file.urls.front())));
        } else {
            plan_mirrors(file, index, plans);
        }
    }
    return plans;
}

JobPlans read_asx(std::span<const std::byte> bytes, const DocumentOptions& options) {
    return plan_clips(CASXSimple::read(bytes), options);
}

JobPlans read_smil(std::span<const std::byte> bytes, const DocumentOptions& options) {
    return plan_clips(CSMILSimple::read(bytes), options);
}

std::optional<MetafileKind> metafile_kind(std::u16string_view name, std::span<const std::byte> bytes) {
    if (has_suffix(name, u".metalink") || has_suffix(name, u".meta4")) return MetafileKind::metalink;
    if (has_suffix(name, u".asx")) return MetafileKind::asx;
    if (has_suffix(name, u".smil") || has_suffix(name, u".smi")) return MetafileKind::smil;
    const std::string text =
        ascii_lower(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    if (text.find("<metalink") != std::string::npos) return MetafileKind::metalink;
    if (text.find("<asx") != std::string::npos) return MetafileKind::asx;
    if (text.find("<smil") != std::string::npos) return MetafileKind::smil;
    return std::nullopt;
}

}  // namespace vantlow
