// A job of the engine as front ends are told of it.
#pragma once

#include <optional>

#include "app/process/live_jobs.h"
#include "engine/engine.h"
#include "rpc/downloads.h"
#include "storage/file_list.h"

namespace vantlow {

/// The phase that the record of a job is in.
rpc::Phase phase_of(const CJobNode& job) noexcept;

/// The files of a torrent whose description is known.
struct TorrentFilesKnown {
    FileList files;
    bool is_folder = false;
    std::int64_t piece_length = 0;
};
/// Reads a description ("info" value); none where it is no such.
std::optional<TorrentFilesKnown> read_torrent_files(std::string_view info);

/// The status of a job. `torrent`: of one whose description is known, or null. `progress`: of one that runs;
/// `live`: its figures as they were measured last, or null. `parts`: of namespace rpc::part.
rpc::JobStatus status_of(const CJobNode& job, const std::optional<JobProgress>& progress, const LiveJob* live,
                         const TorrentFilesKnown* torrent, unsigned parts);

/// The addresses of a job, its own first; without credentials.
std::vector<std::string> addresses_of(const CJobNode& job);

}  // namespace vantlow
