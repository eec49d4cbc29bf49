// The state beside a partial file: whatever it says, no position leaves the file.
#include "storage/resume_state.h"
#include "base/safe_name.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    const std::uint8_t megabytes = take_byte(input);
    const std::u16string path = scratch_file(u"a" + std::u16string(state_suffix), input);
    const auto job = load_resume_state(path);
    if (!job) return;
    CHECK(job->file_size > 0 && !job->segments.empty());
    const std::int64_t end = written_end(*job);
    CHECK(end >= 0 && end <= job->file_size);
    const std::int64_t cut = give_back_tail(*job, std::int64_t{megabytes} << 20U);
    CHECK(cut >= 0 && cut <= end && written_end(*job) <= end);
    CHECK(save_resume_state(*job, path).ok());
    const auto again = load_resume_state(path);
    CHECK(again && again->file_size == job->file_size && again->segments.size() == job->segments.size());
    CHECK(written_end(*again) == written_end(*job));
    ResumeIndex index(scratch_folder());
    const auto taken = index.take(again->address, {});
    CHECK(taken && taken->path == path.substr(0, path.size() - state_suffix.size()));
}
