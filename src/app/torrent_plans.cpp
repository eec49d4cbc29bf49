#include "app/torrent_plans.h"

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

JobPlans refuse(const char* why) {
    return {{}, why};
}

}  // namespace

JobPlans read_torrent_plan(std::span<const std::byte> bytes, const DocumentOptions& /*options*/) {
    CBEncode parser;
    if (!parser.load_memory(bytes)) return refuse("there is not enough memory for it.");
    const auto document = parser.parse_document();
    CBEMetaInfo meta;
    if (!document || !parse_meta_info(parser, *document, {}, meta)) return refuse("it is not a torrent.");
    if (meta.info.empty()) return refuse("it has no info hash.");
    const auto total = meta.total_size();
    if (!total) return refuse("the sizes in it cannot be right.");
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
    if (!magnet) return {{}, to_utf8(address) + ": the magnet link holds no info hash."};
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
