#include "app/rpc/magnet_links.h"

#include <algorithm>
#include <span>

#include "base/codes.h"
#include "base/text.h"
#include "bt/magnet.h"
#include "engine/kinds.h"
#include "platform/file.h"
#include "storage/torrent_documents.h"

namespace vantlow {
namespace {

constexpr std::size_t half = 8;

std::string digits_of(const Guid& guid) {
    return guid_digits(guid_text(guid)).value_or("");
}

}  // namespace

Guid description_of(const Guid& job) noexcept {
    Guid description = job;
    std::rotate(description.bytes.begin(), description.bytes.begin() + half, description.bytes.end());
    return description;
}

// A torrent that has its name on the disk was described, also where its document could not be kept.
bool awaits_description(const Engine& engine, const CJobNode& job) {
    if (kind_of(job) != JobKind::torrent || !name_of(job.path).empty()) return false;
    const auto magnet = parse_magnet(to_utf8(job.address), {});
    if (!magnet) return false;
    const std::u16string document = torrent_document_path(engine.data_folder(), to_hex(magnet->info_hash));
    return path_kind(document) != PathKind::file;
}

const CJobNode* torrent_of_description(const Engine& engine, std::string_view gid) {
    const auto description = guid_from_digits(std::string(gid) + std::string(gid.size(), '0'));
    if (!description) return nullptr;
    const auto wanted = std::span(description->bytes).first<half>();
    const std::vector<const CJobNode*> jobs = engine.jobs_below(nullptr);
    const auto found = std::ranges::find_if(jobs, [&](const CJobNode* job) {
        return std::ranges::equal(std::span(job->identity.bytes).last<half>(), wanted) &&
               kind_of(*job) == JobKind::torrent;
    });
    return found == jobs.end() ? nullptr : *found;
}

void AwaitedDescriptions::add(const Guid& job) {
    if (jobs_.insert(job).second) digits_.insert(digits_of(description_of(job)));
}

void AwaitedDescriptions::remove(const Guid& job) {
    if (jobs_.erase(job) > 0) digits_.erase(digits_of(description_of(job)));
}

std::vector<Guid> AwaitedDescriptions::find(std::string_view digits) const {
    std::vector<Guid> found;
    for (auto at = digits_.lower_bound(digits);
         at != digits_.end() && at->starts_with(digits) && found.size() < 2; ++at)
        found.push_back(guid_from_digits(*at).value_or(Guid()));
    return found;
}

}  // namespace vantlow
