#include "storage/resume_state.h"

#include <algorithm>

#include "base/codes.h"
#include "base/digest.h"
#include "base/mem_file.h"
#include "base/safe_name.h"
#include "platform/file_marks.h"
#include "storage/piece_check.h"
#include "store/address.h"
#include "store/database.h"

namespace vantlow {
namespace {

// A job has at most some hundred segments of some 150 bytes; addresses may be long.
constexpr std::size_t largest_state = 4 * 1024 * 1024;
constexpr std::size_t most_states = 10000;

bool is_consistent(const CJobNode& job) {
    std::int64_t at = 0;
    for (const auto& segment : job.segments) {
        if (segment->start < at || segment->end < segment->start) return false;
        at = segment->end;
    }
    return job.file_size > 0 && at <= job.file_size && !job.segments.empty() && !job.path.empty();
}

std::int64_t bytes_left(const CJobNode& job) {
    std::int64_t left = 0;
    for (const auto& segment : job.segments) left += segment->end - segment->start;
    return left;
}

}  // namespace

FileError save_resume_state(const CJobNode& job, const std::u16string& path) {
    CJobNode copy(job);
    copy.identity = job.identity;
    copy.address = without_credentials(job.address);
    copy.user.clear();
    copy.password.clear();
    copy.cookie.clear();
    copy.form.reset();
    // The state's words name the mirrors and hashes again; the map of checked pieces says what it belongs to.
    copy.sources.reset();
    copy.rules.reset();
    copy.error.clear();
    CQoMemFile file;
    save_single_job(copy, file);
    return write_file_atomically(path, file.bytes(), Privacy::owner_only);
}

namespace {

std::unique_ptr<CJobNode> read_state(const std::u16string& path) {
    std::vector<std::byte> bytes;
    if (!read_file(path, largest_state, bytes).ok()) return nullptr;
    CategoryTree tree;
    const DatabaseLoad load = load_database(bytes, tree);
    if (load.status != DatabaseLoad::Status::loaded || !load.complete || load.jobs != 1) return nullptr;
    if (tree.root()->jobs.empty()) return nullptr;  // filed elsewhere: nothing that this program writes
    std::unique_ptr<CJobNode> job = std::move(tree.root()->jobs.front());
    return is_consistent(*job) && job->partial_mark.is_set() ? std::move(job) : nullptr;
}

}  // namespace

std::unique_ptr<CJobNode> load_resume_state(const std::u16string& path) {
    return belongs_to_user(path) ? read_state(path) : nullptr;
}

std::unique_ptr<CJobNode> load_own_state(const std::u16string& path, const Guid& job) {
    auto state = read_state(path);
    return state && !job.is_zero() && state->identity == job ? std::move(state) : nullptr;
}

std::int64_t written_end(const CJobNode& job) {
    // The bytes between the segments are written; behind the last one the file is written up to its size.
    std::int64_t end = 0;
    std::int64_t at = 0;
    for (const auto& segment : job.segments) {
        if (segment->start > at) end = segment->start;
        at = segment->end;
    }
    return at < job.file_size ? job.file_size : end;
}

std::int64_t give_back_tail(CJobNode& job, std::int64_t bytes) {
    const std::int64_t end = written_end(job);
    std::int64_t before = 0;  // the end of the segment in front of the last written piece
    for (const auto& segment : job.segments) {
        if (segment->start == end && segment->start > before) {
            segment->start = std::max(before, end - bytes);
            return segment->start;
        }
        if (segment->end <= end) before = segment->end;
    }
    if (end <= before) return end;
    return job.append_segment(std::max(before, end - bytes), end).start;
}

namespace {

// The range of the first block that is there.
PartialMark marked_range(const CJobNode& snapshot) {
    constexpr std::int64_t block = 16 * 1024;
    PartialMark mark;
    std::int64_t at = 0;
    mark.begin = mark.end = 0;
    for (const auto& segment : snapshot.segments) {
        if (segment->start > at) mark.end = std::min(segment->start, at + block);
        if (mark.end > 0) break;
        at = std::max(at, segment->end);
    }
    if (mark.end == 0 && at < snapshot.file_size) mark.end = std::min(snapshot.file_size, at + block);
    if (mark.end > 0) mark.begin = at;
    return mark;
}

}  // namespace

PartialMark mark_of(const std::u16string& path, const CJobNode& snapshot) {
    PartialMark mark = marked_range(snapshot);
    File file;
    std::vector<std::byte> block(static_cast<std::size_t>(mark.end - mark.begin));
    std::size_t got = 0;
    if (!file.open(path, OpenMode::read).ok() || !file.read_at(mark.begin, block, got).ok()) return {};
    if (got < block.size()) return {};
    Digest digest(DigestKind::sha256);
    digest.update(block);
    mark.digest = to_hex(digest.finish());
    mark.length = file.size();
    return mark;
}

PartialMark mark_of(CLocalFile& file, const CJobNode& snapshot) {
    PartialMark mark = marked_range(snapshot);
    std::vector<std::byte> digest;
    const StopSource never;  // it is one block, also when the job stops
    if (!digest_of_range(file, DigestKind::sha256, mark.begin, mark.end, never, digest).ok()) return {};
    mark.digest = to_hex(digest);
    mark.length = file.size();
    return mark;
}

bool bears_mark(CLocalFile& file, const PartialMark& mark) {
    const StopSource never;
    std::vector<std::byte> digest;
    return mark.is_set() && mark.begin >= 0 && mark.begin <= mark.end && file.size() >= mark.length &&
           mark.end <= mark.length &&
           digest_of_range(file, DigestKind::sha256, mark.begin, mark.end, never, digest).ok() &&
           to_hex(digest) == mark.digest;
}

ResumeIndex::ResumeIndex(const std::u16string& folder) {
    std::vector<std::u16string> names;
    if (!list_files(folder, state_suffix, names).ok()) return;  // no folder: nothing to continue
    for (const std::u16string& name : names) {
        if (jobs_.size() >= most_states) return;
        auto job = load_resume_state(join_path(folder, name));
        if (!job) continue;
        // The state may have been moved together with its file: the folder is where it stands now.
        job->path = join_path(folder, name.substr(0, name.size() - state_suffix.size()));
        jobs_.push_back(std::move(job));
    }
    std::stable_sort(jobs_.begin(), jobs_.end(),
                     [](const auto& a, const auto& b) { return bytes_left(*a) < bytes_left(*b); });
}

std::unique_ptr<CJobNode> ResumeIndex::take(const Guid& identity) {
    const auto at =
        std::find_if(jobs_.begin(), jobs_.end(), [&](const auto& job) { return job->identity == identity; });
    if (identity.is_zero() || at == jobs_.end()) return nullptr;
    std::unique_ptr<CJobNode> job = std::move(*at);
    jobs_.erase(at);
    return job;
}

std::unique_ptr<CJobNode> ResumeIndex::take(const std::u16string& address, const std::u16string& name) {
    const std::u16string plain = without_credentials(address);
    const auto at = std::find_if(jobs_.begin(), jobs_.end(), [&](const auto& job) {
        return job->address == plain && (name.empty() || job->file_name == name);
    });
    if (at == jobs_.end()) return nullptr;
    std::unique_ptr<CJobNode> job = std::move(*at);
    jobs_.erase(at);
    return job;
}

}  // namespace vantlow
