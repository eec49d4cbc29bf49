// Which pieces of existing files are good.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/result.h"
#include "platform/stop.h"
#include "storage/piece_map.h"
#include "storage/storage.h"

namespace vantlow {

/// How far a check is; any thread may look.
struct CheckProgress {
    std::atomic<std::int64_t> pieces{0};      ///< that are decided
    std::atomic<std::int64_t> bytes_read{0};  ///< from the disk or the system's cache
};

/// Holds pieces against their hashes on `threads` threads (0: as many as the machine has processors), the
/// caller's among them, and gives `good` an entry for each piece of the storage; those that are not in
/// `pieces` keep theirs. Nothing is read of files that are missing, nor of holes whose hash is not that of
/// zeros. Memory: 256 KiB a thread. The storage is open and nobody writes the pieces. The stop's reason where
/// that comes, the first failure of the disk where there is one; what was found by then is in `good` either
/// way, a piece that was not looked at is not good.
Result check_pieces(Storage& storage, const PieceHashSource& hashes, const std::vector<std::size_t>& pieces,
                    int threads, const StopSource& stop, CheckProgress& progress, std::vector<bool>& good);

/// The same for all pieces.
Result check_all_pieces(Storage& storage, const PieceHashSource& hashes, int threads, const StopSource& stop,
                        CheckProgress& progress, std::vector<bool>& good);

}  // namespace vantlow
