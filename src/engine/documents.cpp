#include "engine/documents.h"

#include <algorithm>
#include <limits>

#include "base/text.h"
#include "bt/magnet.h"
#include "ed2k/link.h"
#include "engine/plans.h"

namespace vantlow {
namespace {

constexpr DocumentKind documents[] = {
    {u".torrent", "application/x-bittorrent", read_torrent_plan},
    {u".metalink", "application/metalink+xml", read_metalink},
    {u".meta4", "application/metalink4+xml", read_metalink},
    {u".asx", "video/x-ms-asf", read_asx},
    {u".asx", "video/x-ms-asx", read_asx},
    {u".wax", "audio/x-ms-wax", read_asx},
    {u".wvx", "video/x-ms-wvx", read_asx},
    {u".smil", "application/smil+xml", read_smil},
    {u".smi", "application/smil", read_smil},
};

bool ends_with(std::u16string_view text, std::u16string_view end) noexcept {
    return text.size() > end.size() && iequals(text.substr(text.size() - end.size()), end);
}

}  // namespace

const DocumentKind* document_by_name(std::u16string_view name) noexcept {
    for (const DocumentKind& kind : documents) {
        if (ends_with(name, kind.suffix)) return &kind;
    }
    return nullptr;
}

const DocumentKind* document_by_type(std::string_view media_type) noexcept {
    media_type = trim(media_type.substr(0, media_type.find(';')));
    for (const DocumentKind& kind : documents) {
        if (!kind.media_type.empty() && iequals(media_type, kind.media_type)) return &kind;
    }
    return nullptr;
}

JobPlans plan_link(const std::u16string& address) {
    if (is_magnet(to_utf8(address))) return plan_magnet(address);
    JobPlan plan;
    plan.address = address;
    CED2KLink file;
    // This also covers the form with backslashes, which no scheme test recognises.
    if (istarts_with(address, u"ed2k:")) {
        if (!file.parse(address) || !file.is_hash_valid()) {
            JobPlans none;
            none.faults.push_back({DraftFault::Kind::no_file_link, address});
            return none;
        }
        constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        plan.address = file.format();
        plan.name = file.file_name();
        std::replace_if(
            plan.name.begin(), plan.name.end(), [](char16_t c) { return c == u'/' || c == u'\\'; }, u'_');
        plan.size = file.file_size() <= largest ? static_cast<std::int64_t>(file.file_size()) : -1;
    }
    JobPlans plans;
    plans.plans.push_back(std::move(plan));
    return plans;
}

std::optional<std::u16string> document_address(std::u16string_view link) {
    constexpr std::u16string_view scheme = u"metalink://";
    if (!istarts_with(link, scheme) || link.size() == scheme.size()) return std::nullopt;
    link.remove_prefix(scheme.size());
    const bool has_scheme = link.find(u"://") != std::u16string_view::npos;
    return std::u16string(has_scheme ? u"" : u"http://").append(link);
}

}  // namespace vantlow
