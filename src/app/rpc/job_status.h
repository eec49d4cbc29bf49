// A job of the engine as front ends are told of it.
#pragma once

#include <optional>

#include "app/process/live_jobs.h"
#include "engine/engine.h"
#include "rpc/downloads.h"

namespace vantlow {

/// The phase that the record of a job is in.
rpc::Phase phase_of(const CJobNode& job) noexcept;

/// The status of a job. `progress`: of one that runs; `live`: its figures as they were measured last, or
/// null. `parts`: of namespace rpc::part.
rpc::JobStatus status_of(const CJobNode& job, const std::optional<JobProgress>& progress, const LiveJob* live,
                         unsigned parts);

/// The addresses of a job, its own first; without credentials.
std::vector<std::string> addresses_of(const CJobNode& job);

}  // namespace vantlow
