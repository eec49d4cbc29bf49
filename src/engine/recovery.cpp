#include "engine/recovery.h"

#include <utility>

#include "base/safe_name.h"
#include "engine/kinds.h"
#include "platform/file.h"
#include "platform/file_marks.h"

namespace vantlow {
namespace {

constexpr std::int64_t nanoseconds_of_a_second = 1'000'000'000;
constexpr std::int64_t clock_error = std::int64_t{2} * 3600;

// True when the job was interrupted between the end of its file and the save that would have recorded it: its
// partial file is gone, and under its name there is a file of its size that is younger than the job.
bool ended_unsaved(const CJobNode& job) {
    if (job.file_size < 0 || name_of(job.path).empty()) return false;
    if (path_kind(job.path) != PathKind::file) return false;  // a torrent's folder proves nothing
    if (path_kind(job.path + std::u16string(partial_suffix)) != PathKind::none) return false;
    // A torrent's state goes behind the end, and is there again where its pieces are to be checked.
    const bool has_state = path_kind(job.path + std::u16string(state_suffix)) != PathKind::none;
    if (has_state && kind_of(job) == JobKind::torrent) return false;
    const FileStamp stamp = file_stamp(job.path);
    return stamp.there && stamp.size == job.file_size &&
           stamp.modified / nanoseconds_of_a_second >= job.created;
}

// Nobody writes into a finished file for its job.
bool is_anothers_finished_file(const CJobNode& job) {
    const FileStamp stamp = file_stamp(job.path);
    if (!stamp.there) return false;
    return (job.file_size > 0 && stamp.size != job.file_size) || was_written_since(stamp, job.finished);
}

// Who is at work on a partial file holds it, and who is not has left its state beside it.
bool is_anothers_partial_file(const CJobNode& job) {
    File partial;
    const std::u16string path = job.path + std::u16string(partial_suffix);
    const FileError error = partial.open_alone(path, OpenMode::write_existing);
    if (error.fault == FileFault::in_use) return true;
    const auto state = load_resume_state(job.path + std::u16string(state_suffix));
    return state && state->identity != job.identity;
}

}  // namespace

bool was_written_since(const FileStamp& stamp, std::int64_t finished) noexcept {
    return finished > 0 && stamp.modified / nanoseconds_of_a_second > finished + clock_error;
}

bool is_anothers_file(const CJobNode& job) {
    if (name_of(job.path).empty() || path_kind(job.path) == PathKind::folder) return false;
    return job.state == JobState::finished ? is_anothers_finished_file(job) : is_anothers_partial_file(job);
}

bool is_to_be_shared(const CJobNode& record) noexcept {
    return record.state == JobState::finished && record.tally && record.tally->shares;
}

void set_to_be_shared(CJobNode& record, bool shares) {
    if (!record.tally && !shares) return;
    TorrentTally tally = record.tally ? *record.tally : TorrentTally();
    tally.shares = shares;
    record.tally = std::make_shared<const TorrentTally>(tally);
}

void take_positions(CJobNode& record, CJobNode& from) {
    record.segments = std::move(from.segments);
    record.file_size = from.file_size;
    record.validators = std::move(from.validators);
    record.partial_mark = std::move(from.partial_mark);
    record.path = from.path;
    record.whole_file = from.whole_file;
    record.bit_map = std::move(from.bit_map);
    record.bit_count = from.bit_count;
    record.bit_map_mark = std::move(from.bit_map_mark);
    if (!from.tally) return;
    const bool shares = is_to_be_shared(record);
    record.tally = from.tally;
    set_to_be_shared(record, shares);
}

void take_end(CJobNode& record, CJobNode& from) {
    take_positions(record, from);
    record.result = from.result;
    record.error = std::move(from.error);
    record.finished = from.finished;
}

// Finds the job's state among those in the folder, where the database knew no name. Positions are believed
// only where the state beside the partial file is the job's own: somebody else may have begun anew under the
// name.
void Recovery::adopt_state(CJobNode& job, bool interrupted) {
    if (kind_of(job) == JobKind::torrent && !name_of(job.path).empty()) return;  // its session looks
    if (!name_of(job.path).empty()) {
        if (const auto state = load_own_state(job.path + std::u16string(state_suffix), job.identity)) {
            state->path = job.path;
            take_positions(job, *state);
        } else if (!job.segments.empty()) {
            forget_run(job);
        }
        return;
    }
    if (!interrupted) return;
    const std::u16string folder = folder_of(job.path);
    auto at = left_behind_.find(folder);
    if (at == left_behind_.end()) at = left_behind_.emplace(folder, ResumeIndex(folder)).first;
    if (const auto state = at->second.take(job.identity)) take_positions(job, *state);
}

bool Recovery::catch_up(CJobNode& record, bool interrupted) {
    if (interrupted && ended_unsaved(record)) {
        record.segments.clear();
        record.result = Code::ok;
        record.finished = file_stamp(record.path).modified / nanoseconds_of_a_second;
        return false;
    }
    adopt_state(record, interrupted);
    return true;
}

void forget_run(CJobNode& record) {
    record.segments.clear();
    record.file_size = -1;
    record.finished = 0;
    record.path = folder_of(record.path) + path_separator();
}

}  // namespace vantlow
