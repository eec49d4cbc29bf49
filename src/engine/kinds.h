// The kind of a job: decided once, when the job is made, and saved with it (CJobNode::kind).
#pragma once

#include <cstdint>
#include <string_view>

#include "store/job.h"

namespace vantlow {

/// The values of CJobNode::kind, which are stored in databases and never change.
enum class JobKind : std::int32_t {
    transfer = 0,   ///< one file, fetched by byte ranges from servers
    live = 20,      ///< a stream without an end
    timed = 30,     ///< a stream whose segments are measured in milliseconds
    pieces = 40,    ///< a stream that a playlist divides into pieces
    packets = 50,   ///< a stream that one HTTP answer carries
    torrent = 60,   ///< the BitTorrent network
    edonkey = 70,   ///< the eDonkey network
    document = 80,  ///< a file that names others: fetched as one file, then the named ones take its place
};

/// The kind of an address, by its scheme alone.
JobKind kind_of_address(std::u16string_view address) noexcept;

/// True for an address that a job of this program can be made of and fetched: a server's with a written
/// scheme, a magnet link, a metalink. Paths of this machine are none: who asks may be elsewhere.
bool is_fetchable(std::u16string_view address);

inline JobKind kind_of(const CJobNode& job) noexcept {
    return static_cast<JobKind>(job.kind);
}

/// Decides the kind of a job whose address is known now, unless it has a kind that says more than the
/// address. To be called once, for new jobs and for jobs that were filed before kinds were saved.
void decide_kind(CJobNode& job) noexcept;

}  // namespace vantlow
