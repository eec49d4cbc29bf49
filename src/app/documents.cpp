#include "app/documents.h"

#include "base/text.h"
#include "store/address.h"

namespace vantlow {
namespace {

JobPlans read_torrent(std::span<const std::byte> /*bytes*/, const DocumentOptions& options) {
    return {{}, to_utf8(options.origin) + ": torrents cannot be fetched yet."};
}

constexpr DocumentKind documents[] = {
    {u".torrent", "application/x-bittorrent", read_torrent},
};

bool ends_with(std::u16string_view text, std::u16string_view end) noexcept {
    return text.size() > end.size() && iequals(text.substr(text.size() - end.size()), end);
}

}  // namespace

JobKind job_kind(std::u16string_view address) noexcept {
    switch (link_kind(address)) {
        case LinkKind::torrent:
            return JobKind::torrent;
        case LinkKind::edonkey:
            return JobKind::edonkey;
        default:
            return JobKind::transfer;
    }
}

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
    JobPlan plan;
    plan.address = address;
    JobPlans plans;
    plans.plans.push_back(std::move(plan));
    return plans;
}

}  // namespace vantlow
