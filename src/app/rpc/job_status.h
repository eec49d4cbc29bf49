// A job of the engine as front ends are told of it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/process/live_jobs.h"
#include "engine/engine.h"
#include "rpc/downloads.h"

namespace vantlow {

/// The phase that the record of a job is in.
rpc::Phase phase_of(const CJobNode& job) noexcept;

/// True for a download that has ended, in whatever way.
bool is_stopped(rpc::Phase phase) noexcept;

/// The notification that a download's coming into this phase is told by; empty for the waiting.
std::string_view word_for(rpc::Phase phase) noexcept;

/// The first `count` bits of a bitfield as peers send it (BEP 3); none where it is empty.
std::vector<bool> bits_of(std::string_view wire, std::int64_t count);

/// The parts of a torrent's report (torrent_part) that a status with these parts (rpc::part) is made of.
unsigned report_parts(unsigned parts) noexcept;

/// The status of a job. `torrent`: the report of one, with the parts that it needs, or null. `progress`: of
/// one that runs; `live`: its figures as they were measured last, or null. `parts`: of namespace rpc::part.
rpc::JobStatus status_of(const CJobNode& job, const std::optional<JobProgress>& progress, const LiveJob* live,
                         const TorrentReport* torrent, unsigned parts);

/// The addresses of a job, its own first; without credentials.
std::vector<std::string> addresses_of(const CJobNode& job);

}  // namespace vantlow
