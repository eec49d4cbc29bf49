#include "app/cli/job_output.h"

#include <algorithm>

#include "app/cli/report.h"
#include "app/process/ending.h"
#include "base/string_table.h"
#include "base/text.h"
#include "engine/plans.h"
#include "platform/console.h"
#include "platform/file.h"
#include "store/address.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

constexpr std::chrono::milliseconds draw_interval{100};
constexpr std::chrono::milliseconds report_interval{500};  // of progress events
constexpr std::chrono::hours remind_interval{1};

ordered_json size_or_null(std::int64_t size) {
    return size >= 0 ? ordered_json(size) : ordered_json(nullptr);
}

ordered_json path_or_null(const std::u16string& path) {
    // A job that failed before it knew its name has a folder only.
    const bool known = !path.empty() && !name_of(path).empty();
    return known ? ordered_json(to_utf8(path)) : ordered_json(nullptr);
}

std::string plain_text(std::string_view text) {
    std::string plain(text);
    for (char& c : plain) {
        if ((static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F) c = ' ';
    }
    return plain;
}

// Names the address in front of a sentence, unless the sentence names it itself.
std::string about(const std::string& address, const std::string& text) {
    return text.find(address) != std::string::npos ? text : address + ": " + text;
}

std::string plain_line(std::string_view text) {
    std::string line = plain_text(text);
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

}  // namespace

JobOutput::JobOutput(const GlobalOptions& global) : global_(global), view_(!global.quiet && !global.json) {}

// A person gets the address without what may be secret, a program gets the one that it knows.
std::string JobOutput::shown_address(const CJobNode& job) const {
    const bool for_a_program = global_.json || kind_of(job) != JobKind::torrent;
    return to_utf8(for_a_program ? without_credentials(job.address) : shown_torrent(job.address));
}

std::chrono::milliseconds JobOutput::interval() const noexcept {
    return view_.is_drawing() ? draw_interval : std::chrono::milliseconds(250);
}

void JobOutput::write_line(Stream stream, const std::string& text) {
    if (stream == Stream::error || is_terminal(Stream::output)) {
        view_.clear();
    }
    write_stream(stream, text + "\n");
}

void JobOutput::log_line(std::size_t number, const CLogNode& line) {
    const std::string text = "[" + std::to_string(number + 1) + "] " + std::string(log_mark(line.direction)) +
                             plain_line(line.text);
    const MutexLock guard(mutex_);
    log_lines_.push_back(text);
}

void JobOutput::flush_log() {
    std::vector<std::string> lines;
    {
        const MutexLock guard(mutex_);
        lines.swap(log_lines_);
    }
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    if (text.empty()) return;
    view_.clear();
    write_stream(Stream::error, text);
}

void JobOutput::complain(const std::string& text) {
    write_line(Stream::error, "vantlow: " + plain_line(text));
}

void JobOutput::close() {
    flush_log();
    view_.clear();
    complain_of_lost_output();
}

void JobOutput::report_start(Shown& shown, const std::u16string& path, std::int64_t size) {
    if (shown.start_reported || !global_.json) return;
    shown.start_reported = true;
    write_line(Stream::output, json_line({{"event", "start"},
                                          {"address", shown.address},
                                          {"path", path_or_null(path)},
                                          {"size", size_or_null(size)}}));
}

void JobOutput::report_progress(Shown& shown, const JobProgress& progress, double speed) {
    const auto now = Clock::now();
    if (!global_.json || now - shown.reported < report_interval) return;
    shown.reported = now;
    write_line(Stream::output, json_line({{"event", "progress"},
                                          {"address", shown.address},
                                          {"done", progress.done},
                                          {"size", size_or_null(progress.size)},
                                          {"speed", static_cast<std::int64_t>(speed)},
                                          {"connections", progress.connections}}));
}

// The trouble of a job is reported once, not at every attempt; where nobody sees the count go up, once an
// hour.
void JobOutput::report_trouble(Shown& shown, const JobProgress& progress) {
    report_restarts(shown, progress.restarts);
    if (global_.json) return report_retry(shown, progress);
    const bool waits = !progress.waiting_for.empty();
    const std::string& trouble = waits ? progress.waiting_for : progress.notice;
    if (trouble.empty() || trouble == message_text(Message::server_newer)) return;
    const auto now = Clock::now();
    const bool is_due = waits && !view_.is_drawing() && now - shown.notice_reported >= remind_interval;
    if (trouble == shown.notice && !is_due) return;
    shown.notice = trouble;
    shown.notice_reported = now;
    if (global_.quiet) return;
    complain(about(shown.address, waits ? wait_text(progress, now) : trouble + " (going on)"));
}

// A restart fetches everything once more, so the reason is reported.
void JobOutput::report_restarts(Shown& shown, int restarts) {
    if (restarts <= shown.restarts) return;
    shown.restarts = restarts;
    if (global_.json) {
        write_line(Stream::output, json_line({{"event", "restart"},
                                              {"address", shown.address},
                                              {"reason", message_text(Message::server_newer)}}));
    } else if (!global_.quiet) {
        complain(about(shown.address, std::string(message_text(Message::server_newer))));
    }
}

void JobOutput::report_retry(Shown& shown, const JobProgress& progress) {
    const auto now = Clock::now();
    const bool is_news = !progress.waiting_for.empty() && progress.attempts != shown.attempts;
    if (!is_news || now - shown.notice_reported < report_interval) return;
    shown.attempts = progress.attempts;
    shown.notice_reported = now;
    ordered_json event{{"event", "retry"}, {"address", shown.address}};
    add_wait(event, progress);
    write_line(Stream::output, json_line(event));
}

bool JobOutput::can_ask() const {
    return !global_.json && is_terminal(Stream::error);
}

std::optional<std::string> JobOutput::ask(const std::string& question, const StopSource& stop) {
    if (!can_ask()) return std::nullopt;
    asking_ = true;
    write_stream(Stream::error, "\n" + plain_text(question));
    auto answer = read_terminal_line(stop);
    asking_ = false;
    return answer;
}

void JobOutput::show(const Engine& engine) {
    if (asking_) return;
    flush_log();
    const auto now = Clock::now();
    std::vector<JobLine> lines;
    std::int64_t received = finished_bytes_;
    std::size_t without_place = 0;
    for (RunningJob& running : engine.running_jobs()) {
        Shown& shown = shown_[running.number];
        if (shown.address.empty()) shown.address = shown_address(*running.job);
        JobProgress& progress = running.progress;
        received += progress.received;
        const double speed = shown.speed.update(progress.received, now);
        const bool named = !name_of(progress.path).empty();
        if (named) {
            report_start(shown, progress.path, progress.size);
            report_progress(shown, progress, speed);
        }
        report_trouble(shown, progress);
        if (progress.awaits_place) {
            ++without_place;
            continue;
        }
        std::string waits = wait_text(progress, now);
        lines.push_back({named ? to_utf8(name_of(progress.path)) : shown.address, std::move(progress), speed,
                         std::move(waits)});
    }
    // A job that has no place at its server yet is started, but nobody would call it running.
    totals_.running = engine.running() - without_place;
    totals_.waiting = engine.waiting() + without_place;
    totals_.received = received;
    totals_.speed = total_speed_.update(received, now);
    if (now - drawn_ < draw_interval) return;
    drawn_ = now;
    view_.draw(lines, totals_);
}

void JobOutput::ended(std::size_t number, const CJobNode& job, const JobOutcome& outcome) {
    flush_log();
    Shown& shown = shown_[number];
    if (shown.address.empty()) shown.address = shown_address(job);
    const bool ok = outcome.result.ok();
    finished_bytes_ += outcome.received;
    report_restarts(shown, outcome.restarts);
    if (outcome.result.kind() != Kind::stopped) ++(ok ? totals_.done : totals_.failed);
    if (global_.json) {
        report_start(shown, outcome.path, outcome.size);
        ordered_json event{{"event", "end"},
                           {"address", shown.address},
                           {"path", path_or_null(outcome.path)},
                           {"size", size_or_null(outcome.size)},
                           {"received", outcome.received},
                           {"seconds", outcome.seconds},
                           {"result", plain_result(outcome.result.code)},
                           {"error", ok ? ordered_json(nullptr) : ordered_json(outcome.result.message())}};
        if (outcome.skipped) event["skipped"] = true;
        write_line(Stream::output, json_line(event));
    } else if (ok && !global_.quiet) {
        if (outcome.skipped) complain(to_utf8(outcome.path) + " is there already and is not fetched again.");
        if (!results_elsewhere_) write_line(Stream::output, to_utf8(outcome.path));
    }
    if (!ok && outcome.result.kind() != Kind::stopped)
        complain(about(shown.address, outcome.result.message()));
    shown_.erase(number);
}

}  // namespace vantlow
