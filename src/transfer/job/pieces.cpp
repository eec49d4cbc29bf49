// Pieces with hashes: which are whole, what becomes of those that are wrong.
#include <algorithm>

#include "base/codes.h"
#include "base/text.h"
#include "store/address.h"
#include "transfer/job/main_thread.h"

namespace vantlow {
namespace {

// What a saved map of checked pieces belongs to.
std::string mark_of(const PieceHashes& hashes) {
    Digest digest(DigestKind::sha1);
    const std::string head =
        std::to_string(static_cast<int>(hashes.kind)) + " " + std::to_string(hashes.length) + "\n";
    digest.update(std::as_bytes(std::span(head.data(), head.size())));
    digest.update(hashes.hashes);
    return to_hex(digest.finish());
}

bool bit(const std::vector<std::uint8_t>& map, std::size_t index) noexcept {
    return (map[index / 8] & (0x80U >> (index % 8))) != 0;
}

}  // namespace

const PieceHashes* CTransferMainThread::piece_hashes() const noexcept {
    if (!job_.sources || !job_.sources->pieces || job_.sources->pieces->length <= 0) return nullptr;
    return &*job_.sources->pieces;
}

// The size is known: what an earlier run checked still counts, what else is there is checked now.
void CTransferMainThread::begin_pieces() {
    const PieceHashes* hashes = piece_hashes();
    if (hashes == nullptr) return;
    const std::string mark = mark_of(*hashes);
    std::vector<std::size_t> whole;
    bool fits = true;
    {
        const std::lock_guard guard(lock_);
        if (pieces_ || job_.file_size <= 0) return;
        const auto count = static_cast<std::size_t>((job_.file_size + hashes->length - 1) / hashes->length);
        fits = count == hashes->count();
        if (fits) {
            pieces_ = std::make_unique<PieceCheck>(
                *hashes, job_.file_size, file_, services_.threads, stop_,
                [this](std::size_t piece, const Result& result) { piece_checked(piece, result); });
            piece_states_.assign(count, PieceState::missing);
            const std::size_t bytes = (count + 7) / 8;
            if (job_.bit_map_mark != mark || job_.bit_map.size() != bytes) job_.bit_map.assign(bytes, 0);
            job_.bit_map_mark = mark;
            job_.bit_count = static_cast<std::int32_t>(count);
            for (std::size_t piece = 0; piece < count; ++piece) {
                if (!bit(job_.bit_map, piece)) continue;
                piece_states_[piece] = PieceState::good;
                ++good_pieces_;
            }
            whole = find_whole_pieces(0, job_.file_size);
        } else {
            verify_joints_ = mirrors_.are_several();
        }
    }
    if (!fits) log_.line(Direction::note, pieces_do_not_fit);
    for (const std::size_t piece : whole) pieces_->add(piece);
}

// The file begins anew.
void CTransferMainThread::forget_pieces() {
    end_pieces();
    const std::lock_guard guard(lock_);
    piece_states_.clear();
    good_pieces_ = 0;
    suspects_.clear();
    origins_.clear();
    to_take_back_.clear();
    job_.bit_map.clear();
    job_.bit_count = 0;
}

// Nothing is checked any more; what was checked is kept.
void CTransferMainThread::end_pieces() {
    std::unique_ptr<PieceCheck> ending;
    {
        const std::lock_guard guard(lock_);
        ending = std::move(pieces_);
    }
    // Its thread takes the lock when it reports: it is waited for without.
    ending.reset();
}

// Called with the job lock held.
bool CTransferMainThread::is_missing(std::int64_t begin, std::int64_t end) const {
    return std::any_of(job_.segments.begin(), job_.segments.end(), [&](const auto& segment) {
        return segment->start < segment->end && segment->start < end && segment->end > begin;
    });
}

// The pieces in a range that are now there from end to end; called with the job lock held.
std::vector<std::size_t> CTransferMainThread::find_whole_pieces(std::int64_t begin, std::int64_t end) {
    std::vector<std::size_t> whole;
    if (begin >= end) return whole;
    for (std::size_t piece = pieces_->piece_at(begin); piece <= pieces_->piece_at(end - 1); ++piece) {
        if (piece_states_[piece] != PieceState::missing) continue;
        if (is_missing(pieces_->begin_of(piece), pieces_->end_of(piece))) continue;
        piece_states_[piece] = PieceState::waits;
        whole.push_back(piece);
    }
    return whole;
}

void CTransferMainThread::piece_checked(std::size_t piece, const Result& result) {
    if (result.code == Code::local_file) {
        fail_for_good(result);
        return;
    }
    std::string note;
    bool is_lost = false;
    {
        const std::lock_guard guard(lock_);
        if (!pieces_ || piece_states_[piece] != PieceState::waits) return;
        if (result.ok()) {
            piece_states_[piece] = PieceState::good;
            ++good_pieces_;
            job_.bit_map[piece / 8] |= static_cast<std::uint8_t>(0x80U >> (piece % 8));
            suspects_.erase(piece);
        } else {
            note = refuse_piece(piece);
            is_lost = !mirrors_.is_any_usable();
        }
    }
    if (!note.empty()) {
        log_.line(Direction::error, note);
        const std::lock_guard guard(mutex_);
        notice_ = note;
    }
    if (is_lost) {
        no_mirror_left();
        return;
    }
    {
        const std::lock_guard guard(mutex_);
        news_there_ = true;
    }
    news_.notify_all();
}

// A piece is wrong: it is fetched again, and whoever gave all of it is left. Of several no one can tell who
// was wrong: the next copy comes from one mirror alone. Called with the job lock held; a line for the log.
std::string CTransferMainThread::refuse_piece(std::size_t piece) {
    // A metafile whose hashes are wrong must not have a piece fetched for ever.
    const std::size_t most_copies = 2 * static_cast<std::size_t>(mirrors_.count()) + 2;
    const std::int64_t begin = pieces_->begin_of(piece);
    const std::int64_t end = pieces_->end_of(piece);
    const std::vector<int> givers = origins_.of(begin, end);
    origins_.forget(begin, end);
    piece_states_[piece] = PieceState::missing;
    give_back(begin, end);
    std::string note = "Piece " + std::to_string(piece) + " (" + std::to_string(begin) + " to " +
                       std::to_string(end) + ") has a wrong hash and is fetched again.";
    Suspicion& suspicion = suspects_[piece];
    const bool is_known = givers.size() == 1 && givers.front() != Origins::unknown;
    for (const int giver : givers) {
        if (giver == Origins::unknown) continue;
        ++mirrors_.at(giver).failures;
        const bool is_second = std::ranges::count(suspicion.mirrors, giver) > 0;
        suspicion.mirrors.push_back(giver);
        bool is_last = true;
        for (int other = 0; other < mirrors_.count(); ++other) {
            is_last = is_last && (other == giver || !mirrors_.is_usable(other));
        }
        // The last one is believed to be bad only when it is so twice.
        if (is_known && !mirrors_.at(giver).left && (!is_last || is_second))
            note += " " + leave_mirror(giver, Code::hash_differs, nullptr);
    }
    if (++suspicion.copies > most_copies) {
        for (int mirror = 0; mirror < mirrors_.count(); ++mirror) mirrors_.leave(mirror, Code::hash_differs);
    }
    return note;
}

// Marks what is not missing within a range as missing again. Called with the job lock held.
void CTransferMainThread::give_back(std::int64_t begin, std::int64_t end) {
    std::vector<Origins::Range> gaps;
    std::int64_t at = begin;
    for (const auto& segment : job_.segments) {
        if (segment->start >= segment->end || segment->end <= at) continue;
        if (segment->start >= end) break;
        if (segment->start > at) gaps.push_back({at, segment->start});
        at = segment->end;
    }
    if (at < end) gaps.push_back({at, end});
    for (const auto& gap : gaps) {
        auto segment = std::make_unique<CJobSeg>();
        segment->start = gap.begin;
        segment->end = gap.end;
        // Behind complete segments that stand within it.
        const auto place = std::find_if(job_.segments.begin(), job_.segments.end(),
                                        [&](const auto& next) { return next->start >= gap.end; });
        job_.segments.insert(place, std::move(segment));
    }
}

// Cuts at the border of a piece where that leaves enough: a piece from one mirror alone can be blamed on it.
std::int64_t CTransferMainThread::cut_at(std::int64_t wanted, std::int64_t begin,
                                         std::int64_t split_size) const {
    if (!pieces_) return wanted;
    const std::int64_t border = pieces_->begin_of(pieces_->piece_at(wanted));
    return border - begin >= split_size ? border : wanted;
}

// Called with the job lock held.
bool CTransferMainThread::is_suspect(const CJobSeg& segment) const {
    return pieces_ && !suspects_.empty() && suspects_.contains(pieces_->piece_at(segment.start));
}

}  // namespace vantlow
