#include "media/combine.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "media/joins.h"
#include "media/media_input.h"
#include "media/media_output.h"
#include "platform/file_marks.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

constexpr std::uint32_t whole = 10'000;

bool is_one_of_the_pieces(const std::u16string& path, const std::vector<std::u16string>& pieces) {
    const FileStamp file = file_stamp(path);
    return std::any_of(pieces.begin(), pieces.end(), [&](const std::u16string& piece) {
        const FileStamp stamp = file_stamp(piece);
        return (file.there && stamp.there && stamp == file && stamp.identity != 0) ||
               absolute_path(piece) == absolute_path(path);
    });
}

std::int64_t total_size(const CombineJob& job) {
    std::int64_t total = 0;
    for (const std::u16string& path : job.pieces) {
        const FileStamp stamp = file_stamp(path);
        if (stamp.there) total += stamp.size;
    }
    return total;
}

Result join(const CombineJob& job, CombineControl& control, MediaOutput& output, CombineOutcome& outcome) {
    if (job.pieces.empty()) return {Code::unsupported, "no pieces to join"};
    // The output must not be one of the inputs.
    for (const std::u16string& path : {job.output, MediaOutput::working_name(job.output)}) {
        if (is_one_of_the_pieces(path, job.pieces))
            return {Code::local_file, to_utf8(path) + ": the output is one of the pieces"};
    }
    MediaInput first;
    if (Result result = first.open(job.pieces.front()); !result.ok()) return result;
    const MediaKind kind = media_kind(first);
    if (kind == MediaKind::other) return first.damaged(0, "neither FLV nor MP4");
    control.begin(total_size(job));
    if (Result result = output.open(job.output); !result.ok()) return result;
    return kind == MediaKind::flv ? join_flv(job.pieces, control, output, outcome)
                                  : join_mp4(job.pieces, control, output, outcome);
}

}  // namespace

void CombineControl::wrote(std::int64_t bytes) {
    written_ += bytes;
    if (total_ <= 0 || !listener_) return;
    // The fraction is computed first, because the product of large sizes would overflow.
    const double part = static_cast<double>(written_) / static_cast<double>(total_);
    const auto value = static_cast<std::uint32_t>(std::min(part, 1.0) * whole);
    if (value < told_ + combine_progress_step) return;
    told_ = value;
    listener_(combine_progress_message, value);
}

void CombineControl::finish() const {
    if (listener_) listener_(combine_progress_message, whole);
}

CombineOutcome combine_media(const CombineJob& job, CombineControl& control) {
    CombineOutcome outcome;
    MediaOutput output;
    outcome.result = join(job, control, output, outcome);
    if (outcome.result.ok() && control.is_cancelled()) outcome.result = Code::stopped;
    if (outcome.result.ok()) outcome.result = output.commit();
    if (outcome.result.ok()) {
        outcome.bytes = output.position();
        control.finish();
    }
    return outcome;
}

CCombineMediaThread::CCombineMediaThread(CombineJob job, CombineListener listener)
    : job_(std::move(job)), control_(std::move(listener)) {
    Result started = start_thread(thread_, [this] {
        outcome_ = combine_media(job_, control_);
        const MutexLock guard(mutex_);
        ended_ = true;
        changed_.notify_all();
    });
    if (started.ok()) return;
    outcome_.result = std::move(started);
    ended_ = true;
}

CCombineMediaThread::~CCombineMediaThread() {
    cancel();
    if (thread_.joinable()) thread_.join();
}

bool CCombineMediaThread::wait_for(std::chrono::milliseconds time) {
    MutexLock guard(mutex_);
    return changed_.wait_for(guard, time, [this]() VANTLOW_REQUIRES(mutex_) { return ended_; });
}

CombineOutcome CCombineMediaThread::wait() {
    if (thread_.joinable()) thread_.join();
    return std::move(outcome_);
}

}  // namespace vantlow
