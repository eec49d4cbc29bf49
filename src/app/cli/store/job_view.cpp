#include "app/cli/store/job_view.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>

#include "app/cli/report.h"
#include "app/terminal/display_text.h"
#include "base/text.h"
#include "store/address.h"

namespace vantlow {

using nlohmann::ordered_json;

JobView::JobView(StoreCommand& command, const CJobNode& shown)
    : job(shown), category(command.engine.category_of(shown)) {
    progress = command.engine.progress(shown.identity);
}

std::string JobView::address() const {
    return to_utf8(without_credentials(job.address) + job.fragment);
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
    const std::int64_t size = progress ? progress->size : job.file_size;
    const bool known = size > 0 || (size == 0 && job.state == JobState::finished);
    return known ? size : -1;
}

std::int64_t JobView::done() const {
    if (progress) return std::max<std::int64_t>(progress->done, 0);
    if (job.state == JobState::finished) return std::max<std::int64_t>(job.file_size, 0);
    if (job.file_size <= 0 || job.segments.empty()) return 0;
    std::int64_t left = 0;
    for (const auto& segment : job.segments) left += std::max<std::int64_t>(segment->end - segment->start, 0);
    return std::max<std::int64_t>(job.file_size - left, 0);
}

JobState JobView::state() const {
    return progress && progress->awaits_place ? JobState::waiting : job.state;
}

std::string JobView::error() const {
    if (job.state != JobState::failed) return {};
    return job.error.empty() ? std::string(describe(job.result)) : job.error;
}

void add_wait(ordered_json& json, const JobProgress& progress) {
    if (progress.waiting_for.empty()) return;
    json["waitingFor"] = progress.waiting_for;
    json["attempts"] = progress.attempts;
    json["nextTry"] = nullptr;
    if (!progress.next_try || *progress.next_try <= Clock::now()) return;
    const auto left = std::chrono::ceil<std::chrono::seconds>(*progress.next_try - Clock::now());
    json["nextTry"] = iso_time(static_cast<std::int64_t>(std::time(nullptr)) + left.count());
}

ordered_json list_json(const JobView& view) {
    const CJobNode& job = view.job;
    const std::int64_t size = view.size();
    ordered_json json{{"id", guid_text(job.identity)},
                      {"address", view.address()},
                      {"category", to_utf8(view.category.name)},
                      {"folder", view.folder()},
                      {"file", view.file()},
                      {"size", size < 0 ? ordered_json(nullptr) : ordered_json(size)},
                      {"done", view.done()},
                      {"state", job_state_name(view.state())},
                      {"connections", job.connections},
                      {"comment", to_utf8(job.comment)},
                      {"referer", to_utf8(job.referer)},
                      {"agent", to_utf8(job.agent)}};
    if (const std::string error = view.error(); !error.empty()) json["error"] = error;
    if (view.progress) add_wait(json, *view.progress);
    return json;
}

ordered_json show_json(const JobView& view) {
    const CJobNode& job = view.job;
    ordered_json json = list_json(view);
    json["path"] = to_utf8(view.path());
    json["created"] = job.created;
    json["finished"] = job.finished > 0 ? ordered_json(job.finished) : ordered_json(nullptr);
    json["result"] = plain_result(job.result);
    if (!json.contains("error")) json["error"] = nullptr;
    json["startMode"] = job.start_mode;
    ordered_json segments = ordered_json::array();
    if (view.progress) {
        for (const auto& missing : view.progress->missing) {
            segments.push_back({{"start", missing.start}, {"end", missing.end}});
        }
    } else {
        for (const auto& segment : job.segments) {
            segments.push_back({{"start", segment->start}, {"end", segment->end}});
        }
    }
    json["segments"] = std::move(segments);
    return json;
}

}  // namespace vantlow
