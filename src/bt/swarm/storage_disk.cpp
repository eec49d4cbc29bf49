#include "bt/swarm/storage_disk.h"

#include <algorithm>
#include <utility>

#include "bt/peer/peer_wire.h"

namespace vantlow {
namespace {

// Reads the piece a block at a time. Called on a thread of the pool.
Result digest_blocks(Storage& storage, const PieceHashSource& hashes, std::int64_t piece,
                     std::vector<InfoHash>& digests) {
    const std::int64_t begin = piece * storage.piece_length();
    const std::int64_t end = hashes.end_of(piece, storage.piece_length(), storage.files().size());
    std::string block;
    for (std::int64_t at = begin; at < end; at += block_size) {
        block.resize(static_cast<std::size_t>(std::min<std::int64_t>(block_size, end - at)));
        if (Result result = storage.read(at, std::as_writable_bytes(std::span(block))); !result.ok())
            return result;
        digests.push_back(hash_of(block));
    }
    return {};
}

}  // namespace

StorageDisk::StorageDisk(Storage& storage, DiskPool& pool, const PieceHashSource& hashes)
    : storage_(storage), pool_(pool), hashes_(hashes), self_(std::make_shared<StorageDisk*>(this)) {
    writer_.emplace(storage, pool, hashes, [this](std::int64_t piece, const Result& result) {
        reported(static_cast<std::uint32_t>(piece), result);
    });
}

StorageDisk::~StorageDisk() {
    *self_ = nullptr;
}

void StorageDisk::write(const PieceBlock& block, std::span<const std::byte> bytes,
                        std::function<void(Result)> failed) {
    pieces_[block.piece].failed = std::move(failed);
    Write write{.block = block, .bytes = {bytes.begin(), bytes.end()}};
    if (writes_.empty() && try_write(write)) return;
    writes_.push_back(std::move(write));
    await_room();
}

bool StorageDisk::try_write(Write& write) {
    return writer_->write(write.block.piece, write.block.begin, write.bytes);
}

bool StorageDisk::try_read(const Read& read) {
    const std::int64_t at = read.block.piece * storage_.piece_length() + read.block.begin;
    return writer_->read(at, read.block.length, [done = read.done](const Result& result, auto bytes) {
        if (!result.ok()) return done(result);
        done(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    });
}

bool StorageDisk::is_full() const {
    return !writes_.empty() || pool_.held() >= pool_.rules().high_water;
}

void StorageDisk::when_room(std::function<void()> call) {
    room_call_ = std::move(call);
    await_room();
}

void StorageDisk::await_room() {
    if (std::exchange(awaits_room_, true)) return;
    pool_.when_room([self = self_] {
        if (*self != nullptr) (*self)->room_again();
    });
}

void StorageDisk::room_again() {
    awaits_room_ = false;
    while (!writes_.empty() && try_write(writes_.front())) writes_.pop_front();
    while (!reads_.empty() && try_read(reads_.front())) reads_.pop_front();
    if (!writes_.empty() || !reads_.empty() || (room_call_ && is_full())) return await_room();
    if (room_call_) std::exchange(room_call_, nullptr)();
}

void StorageDisk::check(std::uint32_t piece, bool wants_blocks, std::function<void(Check)> done) {
    const auto at = pieces_.try_emplace(piece).first;
    if (at->second.result) {
        const Result result = *std::move(at->second.result);
        pieces_.erase(at);
        return answer(piece, result, wants_blocks, std::move(done));
    }
    at->second.done = std::move(done);
    at->second.wants_blocks = wants_blocks;
}

// Whether the last block is written or the check is asked for comes first depends on the pool alone.
void StorageDisk::reported(std::uint32_t piece, const Result& result) {
    const auto at = pieces_.find(piece);
    if (at == pieces_.end()) return;
    if (!at->second.done) {
        const auto failed = at->second.failed;
        if (result.ok() || result.code == Code::hash_differs) {
            at->second.result = result;
        } else if (failed) {
            pieces_.erase(at);
            failed(result);
        }
        return;
    }
    const Piece asked = std::move(at->second);
    pieces_.erase(at);
    answer(piece, result, asked.wants_blocks, asked.done);
}

void StorageDisk::answer(std::uint32_t piece, const Result& result, bool wants_blocks,
                         std::function<void(Check)> done) {
    const bool is_wrong = result.code == Code::hash_differs;
    const auto check = std::make_shared<Check>();
    check->is_good = result.ok();
    if (!result.ok() && !is_wrong) check->result = result;
    if (!check->result.ok() || (check->is_good && !wants_blocks)) {
        pool_.post([self = self_, check, done = std::move(done)] {
            if (*self != nullptr) done(*check);
        });
        return;
    }
    writer_->run([this, piece, check] { return digest_blocks(storage_, hashes_, piece, check->blocks); },
                 [check, done = std::move(done)](const Result& read) {
                     if (!read.ok()) check->result = read;
                     done(*check);
                 });
}

void StorageDisk::read(const PieceBlock& block, std::function<void(Outcome<std::string>)> done) {
    Read read{.block = block, .done = std::move(done)};
    if (reads_.empty() && try_read(read)) return;
    reads_.push_back(std::move(read));
    await_room();
}

}  // namespace vantlow
