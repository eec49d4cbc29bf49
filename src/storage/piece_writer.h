// Blocks of pieces on their way to the disk, and back, for a thread that must not wait.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "storage/disk_pool.h"
#include "storage/piece_map.h"
#include "storage/storage.h"

namespace vantlow {

/// Gathers blocks of pieces, writes them in runs, hashes what comes in order on the way and reads the rest
/// back, and tells whether each piece is good. It belongs to the thread that the pool posts to: all is called
/// there, and all results come there, none after the destructor. That one waits for the operations in hand.
class PieceWriter {
  public:
    /// ok: the piece is good, and was handed to the system. `hash_differs`: it is wrong, all of its blocks
    /// are wanted again. `local_file`, `unsupported`: it could not be written or read back, all are wanted
    /// again.
    using Report = std::function<void(std::int64_t piece, const Result& result)>;
    using ReadDone = std::function<void(const Result& result, std::vector<std::byte> bytes)>;

    /// Everything outlives the object; the hashes are asked from any thread.
    PieceWriter(Storage& storage, DiskPool& pool, const PieceHashSource& hashes, Report report);
    ~PieceWriter();
    PieceWriter(const PieceWriter&) = delete;
    PieceWriter& operator=(const PieceWriter&) = delete;

    /// Takes a block that lies within the piece. False, and the block stays the caller's: later, the disk is
    /// behind; DiskPool::when_room tells when. Blocks that are there already are dropped.
    bool write(std::int64_t piece, std::int64_t offset, std::vector<std::byte>& block);
    /// Hands everything that is gathered to the disk, pieces without all of their blocks too.
    void flush();
    /// Reads bytes; false: later, as above.
    bool read(std::int64_t position, std::int64_t length, ReadDone done);
    /// Does something with the storage (sync, finish, choose) in the pool. Not for what may take minutes.
    void run(std::function<Result()> work, std::function<void(const Result&)> done);
    /// Pieces of which blocks are there but no result.
    [[nodiscard]] std::size_t pieces_under_way() const;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace vantlow
