#include "engine/kinds.h"

#include <algorithm>

#include "engine/session.h"
#include "store/address.h"
#include "transfer/job/source.h"

namespace vantlow {
namespace {

constexpr std::size_t most_jobs = 1000;

}  // namespace

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

bool is_fetchable(std::u16string_view address) {
    switch (link_kind(address)) {
        case LinkKind::torrent:
        case LinkKind::metafile:
            return true;
        case LinkKind::transfer:
            return address.find(u"://") != std::u16string_view::npos && find_protocol(address) != nullptr &&
                   parse_target(address).has_value();
        default:
            return false;
    }
}

void decide_kind(CJobNode& job) noexcept {
    if (job.kind == 0) job.kind = static_cast<std::int32_t>(kind_of_address(job.address));
}

const SessionKind* find_session_kind(const SessionTable& table, JobKind kind) noexcept {
    const auto at =
        std::find_if(table.begin(), table.end(), [kind](const SessionKind& row) { return row.kind == kind; });
    return at == table.end() ? nullptr : &*at;
}

const SessionTable& standard_sessions() {
    static const SessionTable table{
        {JobKind::transfer, true, most_jobs, make_plain_session},
        {JobKind::document, true, most_jobs, make_plain_session},
        // This kind is refused by its address, with a sentence that says so.
        {JobKind::edonkey, true, most_jobs, make_plain_session},
        {JobKind::torrent, true, most_jobs, make_torrent_session},
    };
    return table;
}

}  // namespace vantlow
