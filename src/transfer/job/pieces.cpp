// Pieces with hashes: which are whole, what becomes of those that are wrong.
#include <algorithm>

#include "base/codes.h"
#include "base/text.h"
#include "store/address.h"
#include "transfer/job/main_thread.h"

namespace vantlow {
namespace {

// The mark of the hashes that a saved map of checked pieces belongs to.
std::string piece_mark_of(const PieceHashes& hashes) {
    Digest digest(DigestKind::sha1);
    const std::string head =
        std::to_string(static_cast<int>(hashes.kind)) + " " + std::to_string(hashes.length) + "\n";
    digest.update(std::as_bytes(std::span(head.data(), head.size())));
    digest.update(hashes.hashes);
    return to_hex(digest.finish());
}

}  // namespace

const PieceHashes* CTransferMainThread::piece_hashes() const noexcept {
    if (!job_.sources || !job_.sources->pieces || job_.sources->pieces->length <= 0) return nullptr;
    return &*job_.sources->pieces;
}

// Begins once the size is known: pieces that an earlier run checked still count, others that are there are
// checked now.
void CTransferMainThread::begin_pieces() {
    const PieceHashes* hashes = piece_hashes();
    if (hashes == nullptr) return;
    const std::string mark = piece_mark_of(*hashes);
    bool fits = true;
    const auto begin = [&](JobPolicy& policy) {
        std::vector<std::size_t> whole;
        if (pieces_) return whole;
        const std::int64_t size = std::max<std::int64_t>(job_.file_size, 0);
        const auto count = static_cast<std::size_t>((size + hashes->length - 1) / hashes->length);
        fits = size == 0 || count == hashes->count();
        if (size == 0 || !fits) {
            policy.ignore_pieces();
            return whole;
        }
        pieces_ = std::make_unique<PieceCheck>(
            *hashes, job_.file_size, file_, services_.threads, stop_,
            [this](std::size_t piece, const Result& result) {
                decide([&](JobPolicy& now) { now.piece_checked(piece, result); });
            });
        const std::size_t bytes = (count + 7) / 8;
        if (job_.bit_map_mark != mark || job_.bit_map.size() != bytes) job_.bit_map.assign(bytes, 0);
        job_.bit_map_mark = mark;
        job_.bit_count = static_cast<std::int32_t>(count);
        return policy.begin_pieces(hashes->length);
    };
    const std::vector<std::size_t> whole = decide(begin);
    if (!fits) log_.line(Direction::note, pieces_do_not_fit);
    for (const std::size_t piece : whole) pieces_->add(piece);
}

// Forgets all pieces: the file begins anew.
void CTransferMainThread::forget_pieces() {
    end_pieces();
    const MutexLock guard(lock_);
    policy_.forget_pieces();
}

// Ends the checks; those that were made still count.
void CTransferMainThread::end_pieces() {
    std::unique_ptr<PieceCheck> ending;
    {
        const MutexLock guard(lock_);
        ending = std::move(pieces_);
    }
    // Its thread takes the lock when it reports: it is waited for without.
    ending.reset();
}

}  // namespace vantlow
