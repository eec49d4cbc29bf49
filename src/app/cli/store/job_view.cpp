#include "app/cli/store/job_view.h"

#include <nlohmann/json.hpp>

#include <algorithm>

#include "app/cli/report.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "store/address.h"

namespace vantlow {

using nlohmann::ordered_json;

namespace {

// A moment in seconds since 1970; 0 where there was none yet.
ordered_json iso_or_null(std::int64_t moment) {
    return moment > 0 ? ordered_json(iso_time(moment)) : ordered_json(nullptr);
}

}  // namespace

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
    json["created"] = iso_or_null(job.created);
    json["finished"] = iso_or_null(job.finished);
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
