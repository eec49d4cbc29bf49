// The status of a download, in the words of front ends.
#pragma once

#include <string>
#include <vector>

#include "rpc/call.h"
#include "rpc/downloads.h"

namespace vantlow::rpc {

/// The parts that a status needs for these keys; without any: all.
unsigned parts_for(const std::vector<std::string>& keys);

/// The status under these keys; without any: all of it. All values are texts, but for the creation date of a
/// torrent. What a download does not have is left out.
Json json_of(const JobStatus& status, const std::vector<std::string>& keys);
Json json_of(const std::vector<FileStatus>& files);
Json json_of(const std::vector<Source>& sources);
Json json_of(const Peer& peer);
Json json_of(const Totals& totals);

}  // namespace vantlow::rpc
