// A swarm's disk over the files of a job.
#pragma once

#include <deque>
#include <map>
#include <optional>

#include "bt/swarm/swarm_disk.h"
#include "storage/piece_writer.h"

namespace vantlow {

/// Writes, checks and reads through the threads of a pool. All is called on the thread that the pool posts
/// to, which is the swarm's. A swarm ends before its disk, and between the two that thread does nothing else.
/// The destructor waits for the operations in hand. What the pool does not take yet is kept here; that is no
/// more than what had been received when is_full() became true.
class StorageDisk final : public SwarmDisk {
  public:
    /// Everything outlives the object, and the storage is open as long.
    StorageDisk(Storage& storage, DiskPool& pool, const PieceHashSource& hashes);
    ~StorageDisk() override;

    void write(const PieceBlock& block, std::span<const std::byte> bytes,
               std::function<void(Result)> failed) override;
    [[nodiscard]] bool is_full() const override;
    void when_room(std::function<void()> call) override;
    void check(std::uint32_t piece, bool wants_blocks, std::function<void(Check)> done) override;
    void read(const PieceBlock& block, std::function<void(Outcome<std::string>)> done) override;
    /// Does something with the storage on the pool's threads, as PieceWriter::run does.
    void run(std::function<Result()> work, std::function<void(const Result&)> done) {
        writer_->run(std::move(work), std::move(done));
    }

  private:
    struct Write {
        PieceBlock block;
        std::vector<std::byte> bytes;
    };
    struct Read {
        PieceBlock block;
        std::function<void(Outcome<std::string>)> done;
    };
    /// A piece of which blocks came and the result was not told yet.
    struct Piece {
        std::function<void(Result)> failed;
        std::optional<Result> result;  ///< of the writer, before somebody asked for it
        std::function<void(Check)> done;
        bool wants_blocks = false;
    };

    void reported(std::uint32_t piece, const Result& result);
    void answer(std::uint32_t piece, const Result& result, bool wants_blocks,
                std::function<void(Check)> done);
    bool try_write(Write& write);
    bool try_read(const Read& read);
    void await_room();
    void room_again();

    Storage& storage_;
    DiskPool& pool_;
    const PieceHashSource& hashes_;
    std::map<std::uint32_t, Piece> pieces_;
    std::deque<Write> writes_;  ///< that the pool did not take yet, in their order
    std::deque<Read> reads_;
    std::function<void()> room_call_;
    bool awaits_room_ = false;
    std::shared_ptr<StorageDisk*> self_;  ///< for callbacks of the pool that may come when this is gone
    std::optional<PieceWriter> writer_;   ///< last
};

}  // namespace vantlow
