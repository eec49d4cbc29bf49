// A job's remains after its run: the saved state while it runs, the checked and finished file at its end.
#include <algorithm>

#include "base/codes.h"
#include "base/string_table.h"
#include "base/text.h"
#include "storage/resume_state.h"
#include "store/address.h"
#include "transfer/job/main_thread.h"

namespace vantlow {
namespace {

// A full disk is given back this much, in bytes, so that the job's state can be written.
constexpr std::int64_t state_room = 256 * 1024;

// Complete segments say nothing, and may stand within a range that is fetched again. One stays: a job
// without any has not begun.
void drop_complete_segments(CJobNode& job) {
    const auto is_complete = [](const auto& segment) { return segment->start >= segment->end; };
    if (std::all_of(job.segments.begin(), job.segments.end(), is_complete)) {
        job.segments.resize(std::min<std::size_t>(job.segments.size(), 1));
    } else {
        std::erase_if(job.segments, is_complete);
    }
}

// True where the file at `path` holds the same bytes as the first `size` of `file`.
bool holds_same(CLocalFile& file, std::int64_t size, const std::u16string& path, const StopSource& stop) {
    File other;
    if (file_stamp(path).size != size || !other.open(path, OpenMode::read).ok()) return false;
    constexpr std::int64_t at_a_time = 256 * 1024;
    std::vector<std::byte> own(at_a_time);
    std::vector<std::byte> others(at_a_time);
    for (std::int64_t at = 0; at < size; at += at_a_time) {
        const auto length = static_cast<std::size_t>(std::min(at_a_time, size - at));
        const std::span<std::byte> into(own.data(), length);
        std::size_t got = 0;
        if (stop.requested() || !file.read(at, into).ok()) return false;
        if (!other.read_at(at, std::span(others.data(), length), got).ok() || got != length) return false;
        if (!std::equal(into.begin(), into.end(), others.begin())) return false;
    }
    return true;
}

// Removes an earlier wrong file of this name with the same bytes: the new one takes its place, and a start
// that goes wrong again leaves no more files.
void drop_same_wrong_file(CLocalFile& file, std::int64_t size, const StopSource& stop) {
    const std::u16string folder = folder_of(file.target());
    const auto is_another = [&](const std::u16string& name) {
        const std::u16string path = join_path(folder, name);
        if (path_kind(path) != PathKind::file) return path_kind(path) != PathKind::none;
        return !holds_same(file, size, path, stop) || !remove_file(path).ok();
    };
    const std::u16string name = name_of(file.target()) + std::u16string(wrong_hash_suffix);
    if (is_another(name)) static_cast<void>(free_name(name, is_another));
}

}  // namespace

void CTransferMainThread::remember_safe(std::unique_ptr<CJobNode> copy) {
    const MutexLock guard(mutex_);
    safe_ = std::move(copy);
}

std::unique_ptr<CJobNode> CTransferMainThread::safe_copy() {
    std::u16string path;
    {
        const MutexLock guard(lock_);
        path = job_.path;
    }
    const MutexLock guard(mutex_);
    if (!safe_) return nullptr;
    std::unique_ptr<CJobNode> copy = safe_->twin();
    copy->path = std::move(path);
    return copy;
}

// Removes the state on the disk: nothing of it will be true in a moment.
void CTransferMainThread::forget_state() {
    remove_state(file_.state_path());
}

void CTransferMainThread::remove_state(const std::u16string& path) {
    if (!state_saved_.exchange(false)) return;
    if (const FileError error = remove_file(path); !error.ok() && error.fault != FileFault::not_found) {
        log_.line(Direction::error, "The state " + to_utf8(path) + " could not be removed: " + error.text());
    }
}

// Checks the hash that was asked for, and the one that the job's sources name.
Result CTransferMainThread::check_hashes(bool& matches) {
    matches = true;
    if (job_.sources && is_end_found()) {
        if (Result result = check_untold(matches); !result.ok() || !matches) return result;
    }
    if (options_.hash) {
        if (Result result = check_hash(*options_.hash, matches); !result.ok() || !matches) return result;
    }
    if (!job_.sources || !job_.sources->whole) return {};
    const ExpectedHash& named = *job_.sources->whole;
    const bool is_checked =
        options_.hash && options_.hash->kind == named.kind && options_.hash->digest == named.digest;
    return is_checked ? Result{} : check_hash(named, matches);
}

bool CTransferMainThread::is_end_found() {
    const MutexLock guard(lock_);
    return policy_.is_end_found();
}

Result CTransferMainThread::check_hash(const ExpectedHash& expected, bool& matches) {
    std::vector<std::byte> digest;
    Result result = digest_of_range(file_, expected.kind, 0, job_.file_size, stop_, digest);
    matches = result.ok() && digest == expected.digest;
    return result;
}

// An answer that told no size, as one that is unpacked on its way: its size and its pieces could not be
// looked at before all of it was there.
Result CTransferMainThread::check_untold(bool& matches) {
    const std::int64_t size = job_.file_size;
    if (job_.sources->size >= 0 && job_.sources->size != size) {
        matches = false;
        return {};
    }
    const PieceHashes* const hashes = piece_hashes();
    if (hashes == nullptr) return {};
    if (static_cast<std::int64_t>(hashes->count()) != (size + hashes->length - 1) / hashes->length) {
        log_.line(Direction::note, pieces_do_not_fit);
        // Nothing else tells whether the file is the one that is wanted.
        matches = job_.sources->size >= 0 || job_.sources->whole || options_.hash;
        return {};
    }
    for (std::size_t piece = 0; piece < hashes->count() && matches; ++piece) {
        std::vector<std::byte> digest;
        const std::int64_t begin = static_cast<std::int64_t>(piece) * hashes->length;
        const std::int64_t end = std::min(size, begin + hashes->length);
        if (Result result = digest_of_range(file_, hashes->kind, begin, end, stop_, digest); !result.ok())
            return result;
        matches = std::ranges::equal(digest, hashes->hash(piece));
    }
    return {};
}

// The finished file is marked with where its bytes came from, redirects followed as far as known.
std::optional<FileOrigin> CTransferMainThread::origin() {
    if (!services_.settings.flag(setting::mark_zone)) return std::nullopt;
    const MutexLock guard(lock_);
    MirrorSet& mirrors = policy_.mirrors();
    const Mirror* from = &mirrors.at(0);
    for (int i = 0; i < mirrors.count() && from->effective.empty(); ++i) from = &mirrors.at(i);
    const std::u16string& address = from->effective.empty() ? job_.address : from->effective;
    return FileOrigin{to_utf8(without_credentials(address)), to_utf8(without_credentials(job_.referer))};
}

Result CTransferMainThread::finish() {
    const bool matches = hash_matches_;
    if (!matches) drop_same_wrong_file(file_, job_.file_size, stop_);
    const std::u16string state = file_.state_path();
    const std::u16string_view suffix = matches ? std::u16string_view{} : wrong_hash_suffix;
    const auto before_name = [&](const std::u16string& path) {
        if (!matches || !options_.before_name) return;
        const std::int64_t size = job_.file_size;
        {
            const MutexLock guard(lock_);
            job_.path = path;
        }
        {
            // Whoever asks now is told what the file is found by, although no state of it was ever saved.
            const MutexLock guard(mutex_);
            if (safe_) safe_->file_size = size;
        }
        options_.before_name(path, size);
    };
    if (Result result = file_.finish(job_.file_size, suffix, origin(), before_name); !result.ok())
        return result;
    remove_state(state);
    {
        const MutexLock guard(lock_);
        job_.path = file_.target();
        job_.segments.clear();
    }
    if (!matches) {
        std::string text(describe(Code::hash_differs));
        // Where no state is kept the file goes with its run, too.
        if (options_.keep_state) text += " The file is kept as " + to_utf8(file_.target());
        log_.line(Direction::error, text);
        return {Code::hash_differs, text};
    }
    log_.line(Direction::note, message_text(Message::download_completed));
    return {};
}

FileError CTransferMainThread::write_state(const CJobNode& snapshot) {
    const FileError error = save_resume_state(snapshot, file_.state_path());
    if (error.ok()) state_saved_ = true;
    return error;
}

// Positions are taken first, then the bytes up to them go onto the disk, then the positions: after a power
// cut they never promise bytes that are not there.
void CTransferMainThread::save_state() {
    if (!options_.keep_state || !file_.is_open() || encoded_) return;
    {
        const MutexLock guard(mutex_);
        saving_ = true;
    }
    save_positions();
    {
        const MutexLock guard(mutex_);
        saving_ = false;
    }
    news_.notify_all();
}

void CTransferMainThread::save_positions() {
    std::unique_ptr<CJobNode> snapshot;
    {
        const MutexLock guard(lock_);
        // Such a job has nothing that could be continued, or that will be there in a moment.
        if (policy_.is_only_one() || policy_.is_taking_over() || job_.file_size <= 0) return;
        snapshot = job_.twin();
        policy_.open_joints(*snapshot);
        drop_complete_segments(*snapshot);
    }
    snapshot->path = file_.target();
    if (!file_.flush().ok()) return;  // logged; the state on the disk stays true
    snapshot->partial_mark = mark_of(file_, *snapshot);
    const FileError error = write_state(*snapshot);
    remember_safe(std::move(snapshot));
    if (!error.ok()) log_.line(Direction::error, "The state of the job could not be saved: " + error.text());
}

// Nothing of the file is left, so nothing of it counts as done, and the next run has nothing to go on from.
void CTransferMainThread::forget_positions() {
    {
        const MutexLock guard(mutex_);
        if (safe_) safe_->segments.clear();
    }
    bool was_any = false;
    {
        const MutexLock guard(lock_);
        was_any = job_.file_size > 0 && written_end(job_) > 0;
        job_.segments.clear();
        job_.bit_map.clear();
        job_.bit_count = 0;
        job_.partial_mark = {};
    }
    if (was_any) log_.line(Direction::note, "What was received cannot be continued later, and is removed.");
}

// Keeps what is there of a job that did not end well for the next run, where there is anything worth it.
void CTransferMainThread::leave_state(const Result& result) {
    if (!file_.is_open()) return;
    Result drained = file_.drain();  // a failure is logged, and what it lost counts as not received
    bool useless = result.code == Code::keeps_changing;
    bool anything = false;
    {
        const MutexLock guard(lock_);
        useless = useless || policy_.is_only_one();
        anything = job_.file_size > 0 && written_end(job_) > 0 && !useless;
    }
    if (!anything && !drained.ok()) anything = !useless;
    if (!anything && !(result.kind() == Kind::stopped && job_.file_size <= 0)) {
        forget_state();
        file_.discard();
        forget_positions();
        return;
    }
    save_state();
    if (state_saved_ || !options_.keep_state || job_.file_size <= 0) return;
    // The disk is full: the job gives back a little of what it wrote, so that the state of the rest finds
    // room.
    const std::int64_t end = give_back_tail(job_, state_room);
    if (!file_.shrink(end).ok()) return;
    save_state();
}

}  // namespace vantlow
