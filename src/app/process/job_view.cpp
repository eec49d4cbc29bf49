#include "app/process/job_view.h"

#include <algorithm>

#include "base/text.h"
#include "store/address.h"

namespace vantlow {
namespace {

std::int64_t known_size(std::int64_t size, JobState state) noexcept {
    return size > 0 || (size == 0 && state == JobState::finished) ? size : -1;
}

}  // namespace

JobView::JobView(const Engine& engine, const CJobNode& shown)
    : job(shown),
      category(engine.category_of(shown)),
      progress(engine.progress(shown.identity)),
      is_shared(engine.is_sharing(shown.identity)),
      is_moved(engine.is_moving(shown.identity)),
      move(engine.file_move(shown.identity)),
      last_move(engine.last_move(shown.identity)) {}

std::string JobView::address_of(const CJobNode& job) {
    return to_utf8(without_credentials(job.address) + job.fragment);
}

std::vector<std::string> JobView::mirrors_of(const CJobNode& job) {
    std::vector<std::string> mirrors;
    if (!job.sources) return mirrors;
    for (const std::u16string& mirror : job.sources->mirrors) {
        if (mirror != job.address) mirrors.push_back(to_utf8(without_credentials(mirror)));
    }
    return mirrors;
}

std::u16string JobView::path() const {
    return progress && !progress->path.empty() ? progress->path : job.path;
}

std::string JobView::folder() const {
    return to_utf8(folder_of(path()));
}

std::string JobView::file() const {
    const std::u16string name = name_of(path());
    return to_utf8(name.empty() ? job.file_name : name);
}

std::int64_t JobView::size() const {
    return progress ? known_size(progress->size, job.state) : size_of(job);
}

std::int64_t JobView::size_of(const CJobNode& job) noexcept {
    return known_size(job.file_size, job.state);
}

std::int64_t JobView::done() const {
    return progress && !is_shared ? std::max<std::int64_t>(progress->done, 0) : done_of(job);
}

std::int64_t JobView::done_of(const CJobNode& job) noexcept {
    if (job.state == JobState::finished) return std::max<std::int64_t>(job.file_size, 0);
    if (job.file_size <= 0 || job.segments.empty()) return 0;
    std::int64_t left = 0;
    for (const auto& segment : job.segments) left += std::max<std::int64_t>(segment->end - segment->start, 0);
    return std::max<std::int64_t>(job.file_size - left, 0);
}

JobState JobView::state() const {
    return progress && progress->awaits_place ? JobState::waiting : job.state;
}

std::string_view JobView::state_word() const {
    if (is_moved) return "moving";
    return is_shared ? "sharing" : job_state_name(state());
}

std::string JobView::error_of(const CJobNode& job) {
    if (job.state != JobState::failed) return {};
    return job.error.empty() ? std::string(describe(job.result)) : job.error;
}

}  // namespace vantlow
