#include "storage/piece_writer.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

namespace vantlow {
namespace {

// The bytes gathered of a piece are written from this size on, even if the piece is not whole.
constexpr std::int64_t run_size = 1024 * 1024;
// A step of reading back stays in the processor's own cache until it is hashed.
constexpr std::int64_t read_step = 256 * 1024;

using Blocks = std::map<std::int64_t, std::vector<std::byte>>;  // by their offset in the piece

/// Ranges of a piece that are there, neighbours joined.
class Cover {
  public:
    [[nodiscard]] bool has(std::int64_t begin, std::int64_t end) const {
        const auto behind = ranges_.upper_bound(begin);
        return behind != ranges_.begin() && std::prev(behind)->second >= end;
    }
    [[nodiscard]] bool touches(std::int64_t begin, std::int64_t end) const {
        const auto behind = ranges_.lower_bound(end);
        return behind != ranges_.begin() && std::prev(behind)->second > begin;
    }
    void add(std::int64_t begin, std::int64_t end) {
        auto at = ranges_.upper_bound(begin);
        if (at != ranges_.begin() && std::prev(at)->second >= begin) --at;
        while (at != ranges_.end() && at->first <= end) {
            begin = std::min(begin, at->first);
            end = std::max(end, at->second);
            at = ranges_.erase(at);
        }
        ranges_[begin] = end;
    }

  private:
    std::map<std::int64_t, std::int64_t> ranges_;
};

/// A piece that is on its way.
struct Piece {
    Blocks blocks;  ///< that nobody writes yet
    std::int64_t gathered = 0;
    Cover cover;
    std::int64_t size = 0;
    bool working = false;
    bool overlaps = false;              ///< two blocks may have told different bytes for one place
    std::optional<PieceDigest> digest;  ///< the worker's
};

}  // namespace

struct PieceWriter::State : std::enable_shared_from_this<PieceWriter::State> {
    State(Storage& to, DiskPool& by, const PieceHashSource& from, Report tell)
        : storage(to), pool(by), hashes(from), report(std::move(tell)) {}

    Storage& storage;
    DiskPool& pool;
    const PieceHashSource& hashes;
    const Report report;
    mutable Mutex mutex;
    Condition idle;
    std::map<std::int64_t, Piece> pieces VANTLOW_GUARDED_BY(mutex);
    int in_hand VANTLOW_GUARDED_BY(mutex) = 0;
    bool closed VANTLOW_GUARDED_BY(mutex) = false;

    // Begins a work of this object unless it is closed.
    bool enter() {
        const MutexLock guard(mutex);
        if (!closed) ++in_hand;
        return !closed;
    }
    void leave() {
        {
            const MutexLock guard(mutex);
            --in_hand;
        }
        idle.notify_all();
    }
    // Posts what is for the owner's thread; it does not come once the owner is gone.
    void tell(std::function<void()> call) {
        pool.post([self = shared_from_this(), call = std::move(call)] {
            {
                const MutexLock guard(self->mutex);
                if (self->closed) return;
            }
            call();
        });
    }
    // `held` bytes are given back when the work is over, or will not be done.
    Result add(std::function<void(const StopSource&)> work, std::int64_t held = 0) {
        Result added =
            pool.add([self = shared_from_this(), work = std::move(work), held](const StopSource& stop) {
                if (self->enter()) {
                    work(stop);
                    self->leave();
                }
                if (held > 0) self->pool.give_back(held);
            });
        if (!added.ok() && held > 0) pool.give_back(held);
        return added;
    }

    void start(std::int64_t index);
    void work_on(std::int64_t index, const StopSource& stop);
    Result write_blocks(std::int64_t index, Piece& piece, const Blocks& blocks);
    Result read_back(std::int64_t index, Piece& piece, const StopSource& stop);
    void end(std::int64_t index, const Result& result);
};

void PieceWriter::State::start(std::int64_t index) {
    Result started = add([this, index](const StopSource& stop) { work_on(index, stop); });
    if (!started.ok()) end(index, started);
}

// The piece is done with: whatever comes of it later begins it anew.
void PieceWriter::State::end(std::int64_t index, const Result& result) {
    std::int64_t dropped = 0;
    {
        const MutexLock guard(mutex);
        const auto at = pieces.find(index);
        if (at == pieces.end()) return;
        dropped = at->second.gathered;
        pieces.erase(at);
    }
    if (dropped > 0) pool.give_back(dropped);
    tell([this, index, result] { report(index, result); });
}

// One work at a time is on a piece; what comes meanwhile is its next round.
void PieceWriter::State::work_on(std::int64_t index, const StopSource& stop) {
    for (;;) {
        Piece* piece = nullptr;  // stays where it is: only the one who works on it ends it
        Blocks blocks;
        std::int64_t bytes = 0;
        bool whole = false;
        bool overlaps = false;
        {
            const MutexLock guard(mutex);
            piece = &pieces.at(index);
            overlaps = piece->overlaps;
            blocks.swap(piece->blocks);
            bytes = std::exchange(piece->gathered, 0);
            whole = piece->cover.has(0, piece->size);
            if (blocks.empty() && !whole) {
                piece->working = false;
                return;
            }
        }
        Result result = write_blocks(index, *piece, blocks);
        pool.give_back(bytes);
        if (result.ok() && !whole) continue;
        // Only what the disk holds counts then.
        if (overlaps) piece->digest.emplace(hashes.hash_of(index));
        if (result.ok()) result = read_back(index, *piece, stop);
        if (result.ok() && !piece->digest->matches()) result = Code::hash_differs;
        if (result.kind() != Kind::stopped) end(index, result);
        return;
    }
}

// Each block by itself, in their order: the system joins neighbours in its cache, while joining them here
// would copy every byte once more. A block is still in the processor's cache when it is hashed.
Result PieceWriter::State::write_blocks(std::int64_t index, Piece& piece, const Blocks& blocks) {
    if (!piece.digest) piece.digest.emplace(hashes.hash_of(index));
    for (const auto& [offset, bytes] : blocks) {
        if (Result result = storage.write(index * storage.piece_length() + offset, bytes); !result.ok())
            return result;
        const std::int64_t hashed = piece.digest->bytes();
        const std::int64_t end = offset + static_cast<std::int64_t>(bytes.size());
        if (offset <= hashed && hashed < end)
            piece.digest->update(std::span(bytes).subspan(static_cast<std::size_t>(hashed - offset)));
    }
    return {};
}

// Bytes that came out of order are read from the system's cache, not from the disk.
Result PieceWriter::State::read_back(std::int64_t index, Piece& piece, const StopSource& stop) {
    std::vector<std::byte> buffer;
    while (piece.digest->bytes() < piece.size) {
        if (stop.requested()) return Code::stopped;
        const std::int64_t at = piece.digest->bytes();
        buffer.resize(static_cast<std::size_t>(std::min(read_step, piece.size - at)));
        if (Result result = storage.read(index * storage.piece_length() + at, buffer); !result.ok())
            return result;
        piece.digest->update(buffer);
    }
    return {};
}

PieceWriter::PieceWriter(Storage& storage, DiskPool& pool, const PieceHashSource& hashes, Report report)
    : state_(std::make_shared<State>(storage, pool, hashes, std::move(report))) {}

PieceWriter::~PieceWriter() {
    std::int64_t dropped = 0;
    {
        MutexLock guard(state_->mutex);
        state_->closed = true;
        state_->idle.wait(guard, [this]() VANTLOW_REQUIRES(state_->mutex) { return state_->in_hand == 0; });
        for (const auto& [index, piece] : state_->pieces) dropped += piece.gathered;
        state_->pieces.clear();
    }
    if (dropped > 0) state_->pool.give_back(dropped);
}

bool PieceWriter::write(std::int64_t piece, std::int64_t offset, std::vector<std::byte>& block) {
    const auto bytes = static_cast<std::int64_t>(block.size());
    const std::int64_t begin = piece * state_->storage.piece_length();
    const std::int64_t size =
        state_->hashes.end_of(piece, state_->storage.piece_length(), state_->storage.files().size()) - begin;
    if (bytes == 0 || offset < 0 || offset > size - bytes) return true;
    if (!state_->pool.take(bytes)) {
        flush();
        return false;
    }
    bool starts = false;
    bool is_double = false;
    {
        const MutexLock guard(state_->mutex);
        Piece& at = state_->pieces[piece];
        at.size = size;
        is_double = at.cover.has(offset, offset + bytes) || at.blocks.contains(offset);
        if (!is_double) {
            at.overlaps = at.overlaps || at.cover.touches(offset, offset + bytes);
            at.cover.add(offset, offset + bytes);
            at.blocks.emplace(offset, std::move(block));
            at.gathered += bytes;
        }
        starts = !at.working && !is_double && (at.gathered >= run_size || at.cover.has(0, size));
        at.working = at.working || starts;
    }
    if (is_double) state_->pool.give_back(bytes);
    if (starts) state_->start(piece);
    // Pieces that nobody goes on with must not hold the memory of all.
    if (state_->pool.held() >= state_->pool.rules().low_water) flush();
    return true;
}

void PieceWriter::flush() {
    std::vector<std::int64_t> starting;
    {
        const MutexLock guard(state_->mutex);
        for (auto& [index, piece] : state_->pieces) {
            if (piece.working || piece.blocks.empty()) continue;
            piece.working = true;
            starting.push_back(index);
        }
    }
    for (const std::int64_t index : starting) state_->start(index);
}

bool PieceWriter::read(std::int64_t position, std::int64_t length, ReadDone done) {
    State& state = *state_;
    if (!state.pool.take(length)) return false;
    const auto answer = std::make_shared<ReadDone>(std::move(done));
    const auto work = [&state, position, length, answer](const StopSource&) {
        std::vector<std::byte> bytes(static_cast<std::size_t>(length));
        Result result = state.storage.read(position, bytes);
        if (!result.ok()) bytes.clear();
        const auto given = std::make_shared<std::vector<std::byte>>(std::move(bytes));
        state.tell([answer, given, result] { (*answer)(result, std::move(*given)); });
    };
    if (Result started = state.add(work, length); !started.ok())
        state.tell([answer, started] { (*answer)(started, {}); });
    return true;
}

void PieceWriter::run(std::function<Result()> work, std::function<void(const Result&)> done) {
    State& state = *state_;
    const auto answer = std::make_shared<std::function<void(const Result&)>>(std::move(done));
    const auto both = [&state, work = std::move(work), answer](const StopSource&) {
        state.tell([answer, result = work()] { (*answer)(result); });
    };
    if (Result started = state.add(both); !started.ok())
        state.tell([answer, started] { (*answer)(started); });
}

std::size_t PieceWriter::pieces_under_way() const {
    const MutexLock guard(state_->mutex);
    return state_->pieces.size();
}

}  // namespace vantlow
