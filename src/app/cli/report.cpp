#include "app/cli/report.h"

#include <chrono>
#include <ctime>

#include "app/terminal/quantities.h"
#include "platform/console.h"

namespace vantlow {

using nlohmann::ordered_json;

std::string json_line(const ordered_json& json) {
    return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string answer_text(const GlobalOptions& global, const ordered_json& json, std::string_view text) {
    return global.json ? json_line(json) + "\n" : std::string(text);
}

void print_answer(const GlobalOptions& global, const ordered_json& json, std::string_view text) {
    write_stream(Stream::output, answer_text(global, json, text));
}

std::int32_t plain_result(Code code) noexcept {
    return kind_of(code) == Kind::done ? 0 : static_cast<std::int32_t>(code);
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

}  // namespace vantlow
