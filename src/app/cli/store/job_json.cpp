#include "app/cli/store/job_json.h"

#include <nlohmann/json.hpp>

#include "app/cli/report.h"
#include "app/terminal/quantities.h"
#include "base/text.h"

namespace vantlow {

using nlohmann::ordered_json;

namespace {

// A moment in seconds since 1970; 0 where there was none yet.
ordered_json iso_or_null(std::int64_t moment) {
    return moment > 0 ? ordered_json(iso_time(moment)) : ordered_json(nullptr);
}

}  // namespace

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
