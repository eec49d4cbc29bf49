#include "engine/kinds.h"

#include "store/address.h"

namespace vantlow {

JobKind kind_of_address(std::u16string_view address) noexcept {
    switch (link_kind(address)) {
        case LinkKind::torrent:
            return JobKind::torrent;
        case LinkKind::edonkey:
            return JobKind::edonkey;
        case LinkKind::metafile:
            return JobKind::document;
        default:
            return JobKind::transfer;
    }
}

void decide_kind(CJobNode& job) noexcept {
    if (job.kind == 0) job.kind = static_cast<std::int32_t>(kind_of_address(job.address));
}

}  // namespace vantlow
