// ASX playlists and SMIL presentations, and the jobs that are made of them.
#include <cmath>

#include "engine/plans.h"
#include "fuzz.h"
#include "meta/playlist.h"
#include "store/address.h"

namespace vantlow::fuzz {
namespace {

void look_at(const Playlist& list, const JobPlans& plans, std::size_t size) {
    CHECK(list.clips.size() <= size && plans.plans.size() <= list.clips.size());
    for (const CMetafileNode& clip : list.clips) CHECK(std::isfinite(clip.start) && std::isfinite(clip.end));
    for (const JobPlan& plan : plans.plans) CHECK(link_kind(plan.address) == LinkKind::transfer);
}

}  // namespace

void run(std::string_view input) {
    const DocumentOptions options{.origin = u"http://h/folder/list"};
    const auto bytes = bytes_of(input);
    look_at(CASXSimple::read(bytes), read_asx(bytes, options), input.size());
    look_at(CSMILSimple::read(bytes), read_smil(bytes, options), input.size());
    CHECK(std::isfinite(clock_seconds(input)));
}

}  // namespace vantlow::fuzz
