#include "engine/torrent_plans.h"

#include <algorithm>

#include "base/codes.h"
#include "base/text.h"
#include "bt/magnet.h"

namespace vantlow {
namespace {

// A torrent's name is one name, whatever stands in it.
std::u16string one_name(std::u16string name) {
    std::replace_if(
        name.begin(), name.end(), [](char16_t c) { return c == u'/' || c == u'\\'; }, u'_');
    return name;
}

JobPlans refuse(DraftFault::Kind why, std::u16string subject = {}) {
    JobPlans plans;
    plans.faults.push_back({why, std::move(subject)});
    return plans;
}

}  // namespace

JobPlans read_torrent_plan(std::span<const std::byte> bytes, const DocumentOptions& /*options*/) {
    CBEncode parser;
    if (!parser.load_memory(bytes)) return refuse(DraftFault::Kind::no_memory);
    const auto document = parser.parse_document();
    CBEMetaInfo meta;
    if (!document || !parse_meta_info(parser, *document, {}, meta))
        return refuse(DraftFault::Kind::no_torrent);
    if (meta.info.empty()) return refuse(DraftFault::Kind::no_info_hash);
    const auto total = meta.total_size();
    if (!total) return refuse(DraftFault::Kind::wrong_sizes);
    JobPlan plan;
    plan.address = to_utf16(make_magnet(meta.info_hash, to_utf8(meta.name()), meta.trackers));
    plan.name = one_name(meta.name());
    plan.size = *total;
    JobPlans plans;
    plans.plans.push_back(std::move(plan));
    return plans;
}

JobPlans plan_magnet(const std::u16string& address) {
    const auto magnet = parse_magnet(to_utf8(address), {});
    if (!magnet) return refuse(DraftFault::Kind::no_info_hash, address);
    JobPlan plan;
    plan.address = address;
    plan.name = one_name(to_utf16(percent_decode(magnet->name)));
    if (plan.name.empty()) plan.name = to_utf16(to_hex(magnet->info_hash));
    JobPlans plans;
    plans.plans.push_back(std::move(plan));
    return plans;
}

std::u16string shown_torrent(std::u16string_view address) {
    const auto magnet = parse_magnet(to_utf8(address), {});
    if (!magnet) return std::u16string(address);
    return to_utf16(make_magnet(magnet->info_hash, percent_decode(magnet->name), {}));
}

}  // namespace vantlow
