// `vantlow list`, `show` and `log`.
#include <nlohmann/json.hpp>

#include <ctime>
#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/job_view.h"
#include "app/cli/store/store_commands.h"
#include "app/terminal/display_text.h"
#include "app/terminal/progress_lines.h"
#include "base/text.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

std::string padded(std::string text, int columns) {
    const int width = display_width(text);
    return text.append(static_cast<std::size_t>(std::max(columns - width, 0)), ' ');
}

std::string done_text(const JobView& view) {
    const std::int64_t size = view.size();
    if (size <= 0) return human_size(view.done());
    return std::to_string(view.done() * 100 / size) + " % of " + human_size(size);
}

// Why the job failed, or what it waits for.
std::string trouble_of(const JobView& view) {
    std::string why = view.error();
    if (view.progress && view.progress->awaits_place)
        return "waits for a connection to the server to be free";
    return view.progress ? wait_text(*view.progress, Clock::now()) : why;
}

std::string list_line(const JobView& view) {
    constexpr std::size_t shown_digits = 8;
    std::string name = view.file();
    if (name.empty()) name = view.address();
    const std::string why = trouble_of(view);
    return guid_text(view.job.identity).substr(0, shown_digits) + "  " +
           padded(std::string(job_state_name(view.state())), 9) + padded(done_text(view), 18) +
           padded(shorten(printable(to_utf8(view.category.name)), 14), 15) + printable(name) +
           (why.empty() ? "" : "  " + printable(why)) + "\n";
}

Exit run_list(StoreCommand& command, const std::string& category_name) {
    const CClassNode* category = nullptr;
    if (!category_name.empty()) {
        category = find_category(command, category_name);
        if (category == nullptr) return Exit::failed;
    }
    std::string text;
    ordered_json all = ordered_json::array();
    for (const CJobNode* job : command.engine.jobs_below(category)) {
        const JobView view(command, *job);
        if (command.global.json) {
            all.push_back(list_json(view));
        } else {
            text += list_line(view);
        }
    }
    if (command.global.json) text = json_line(all) + "\n";
    write_stream(Stream::output, text);
    return Exit::done;
}

std::string time_text(std::int64_t seconds) {
    if (seconds <= 0) return "--";
    const auto time = static_cast<std::time_t>(seconds);
    char text[64] = {};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): commands run one after the other
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&time));
    return text;
}

std::string show_text(const JobView& view) {
    const CJobNode& job = view.job;
    std::string text;
    const auto row = [&](const char* name, const std::string& value) {
        if (!value.empty()) text += padded(name, 14) + printable(value) + "\n";
    };
    row("Id", guid_text(job.identity));
    row("Address", view.address());
    row("Category", to_utf8(view.category.name));
    row("State", std::string(job_state_name(view.state())));
    row(job.state == JobState::failed ? "Error" : "Waiting for", trouble_of(view));
    row("Folder", view.folder());
    row("File", view.file());
    row("Done", done_text(view));
    row("Connections", std::to_string(job.connections));
    row("Referer", to_utf8(job.referer));
    row("Agent", to_utf8(job.agent));
    row("User name", to_utf8(job.user));
    row("Comment", to_utf8(job.comment));
    row("Created", time_text(job.created));
    if (job.finished > 0) row("Finished", time_text(job.finished));
    const ordered_json json = show_json(view);
    for (const auto& segment : json["segments"]) {
        const auto end = segment["end"].get<std::int64_t>();
        row("Missing", std::to_string(segment["start"].get<std::int64_t>()) + " to " +
                           (end == unknown_end ? std::string("the end") : std::to_string(end)));
    }
    return text;
}

const CJobNode* one_job(StoreCommand& command, const std::string& id) {
    bool complete = true;
    const auto jobs = find_jobs(command, {id}, complete);
    return complete ? command.engine.find(jobs.front()) : nullptr;
}

Exit run_show(StoreCommand& command, const std::string& id) {
    const CJobNode* job = one_job(command, id);
    if (job == nullptr) return Exit::failed;
    const JobView view(command, *job);
    write_stream(Stream::output, command.global.json ? json_line(show_json(view)) + "\n" : show_text(view));
    return Exit::done;
}

Exit run_log(StoreCommand& command, const std::string& id) {
    static constexpr const char* marks[] = {"  ", "> ", "! ", "< "};
    static constexpr const char* names[] = {"note", "sent", "error", "received"};
    const CJobNode* job = one_job(command, id);
    if (job == nullptr) return Exit::failed;
    std::string text;
    ordered_json all = ordered_json::array();
    for (const CLogNode& line : command.engine.log_of(job->identity)) {
        const auto mark = static_cast<std::size_t>(line.direction);
        if (command.global.json) {
            all.push_back({{"time", line.time}, {"direction", names[mark]}, {"text", line.text}});
        } else {
            text += time_text(line.time / 1000) + " " + marks[mark] + printable(line.text) + "\n";
        }
    }
    if (command.global.json) text = json_line(all) + "\n";
    write_stream(Stream::output, text);
    return Exit::done;
}

}  // namespace

void add_list_commands(CommandSet& commands) {
    const auto category = std::make_shared<std::string>();
    CLI::App& list = commands.add_on_data_folder(
        "list", "List the jobs",
        on_store([category](StoreCommand& command) { return run_list(command, *category); }));
    list.add_option("--category", *category, "Only this category and those below it");
    const auto shown = std::make_shared<std::string>();
    CLI::App& show = commands.add_on_data_folder(
        "show", "Show one job with its segments",
        on_store([shown](StoreCommand& command) { return run_show(command, *shown); }));
    show.add_option("ID", *shown, "The job's id, or the beginning of it")->required();
    const auto logged = std::make_shared<std::string>();
    CLI::App& log = commands.add_on_data_folder(
        "log", "Print the log of one job",
        on_store([logged](StoreCommand& command) { return run_log(command, *logged); }));
    log.add_option("ID", *logged, "The job's id, or the beginning of it")->required();
}

}  // namespace vantlow
