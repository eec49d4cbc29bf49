// `vantlow list`, `show` and `log`.
#include <nlohmann/json.hpp>

#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/job_json.h"
#include "app/cli/store/store_command.h"
#include "app/terminal/display_text.h"
#include "app/terminal/progress_lines.h"
#include "app/terminal/quantities.h"
#include "base/codes.h"
#include "base/text.h"
#include "store/address.h"

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

// Returns the reason why the job failed, or the one why it waits.
std::string trouble_of(const JobView& view) {
    std::string why = view.error();
    if (view.progress && view.progress->awaits_place) return "waits for a free connection to the server";
    return view.progress ? wait_text(*view.progress, Clock::now()) : why;
}

std::string list_line(const JobView& view) {
    constexpr std::size_t shown_digits = 8;
    std::string name = view.file();
    if (name.empty()) name = view.address();
    const std::string why = trouble_of(view);
    return guid_text(view.job.identity).substr(0, shown_digits) + "  " +
           padded(std::string(view.state_word()), 9) + padded(done_text(view), 18) +
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
        const JobView view(command.engine, *job);
        if (command.global.json) {
            all.push_back(list_json(view));
        } else {
            text += list_line(view);
        }
    }
    print_answer(command.global, all, text);
    return Exit::done;
}

std::string row_of(const char* name, const std::string& value) {
    return value.empty() ? std::string() : padded(name, 14) + printable(value) + "\n";
}

std::string show_text(const JobView& view) {
    const CJobNode& job = view.job;
    std::string text;
    const auto row = [&](const char* name, const std::string& value) { text += row_of(name, value); };
    row("Id", guid_text(job.identity));
    row("Address", view.address());
    for (const std::string& mirror : JobView::mirrors_of(job)) row("Mirror", mirror);
    row("Category", to_utf8(view.category.name));
    row("State", std::string(view.state_word()));
    row(job.state == JobState::failed ? "Error" : "Waiting for", trouble_of(view));
    if (view.move) {
        row("Moving to", to_utf8(view.move->to));
        if (view.move->size >= 0)
            row("Moved", human_size(view.move->moved) + " of " + human_size(view.move->size));
    }
    row("Not moved", text_of(view.last_move, guid_text(job.identity)).value_or(""));
    row("Folder", view.folder());
    row("File", view.file());
    row("Done", done_text(view));
    row("Connections", std::to_string(job.connections));
    row("Referer", to_utf8(without_credentials(job.referer)));
    row("Agent", to_utf8(job.agent));
    row("User name", to_utf8(job.user));
    row("Comment", to_utf8(job.comment));
    row("Created", local_time(job.created));
    if (job.finished > 0) row("Finished", local_time(job.finished));
    const ordered_json json = show_json(view);
    for (const auto& segment : json["segments"]) {
        const auto end = segment["end"].get<std::int64_t>();
        row("Missing", std::to_string(segment["start"].get<std::int64_t>()) + " to " +
                           (end == unknown_end ? std::string("the end") : std::to_string(end)));
    }
    return text;
}

std::string torrent_text(const TorrentReport& report) {
    std::string text = row_of("Info hash", to_hex(report.info_hash));
    if (report.is_described)
        text += row_of("Pieces", std::to_string(report.good_pieces) + " of " +
                                     std::to_string(report.piece_count) + ", each of " +
                                     human_size(report.piece_length));
    text += row_of("Received", human_size(report.received));
    text += row_of("Sent", human_size(report.sent) + print(" (ratio %.2f)", report.ratio()));
    if (report.port != 0) text += row_of("Port", std::to_string(report.port));
    if (!report.port_news.empty()) text += row_of("Router", report.port_news);
    if (!report.firewall_news.empty()) text += row_of("Firewall", report.firewall_news);
    if (report.blocked > 0) text += row_of("Blocked", std::to_string(report.blocked) + " addresses");
    if (report.phase != TorrentReport::Phase::idle)
        text += row_of("Peers", std::to_string(report.connections) + " connected, " +
                                    std::to_string(report.seeds) + " of them with everything");
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
    const JobView view(command.engine, *job);
    ordered_json json = show_json(view);
    std::string text = show_text(view);
    if (const auto report =
            command.engine.torrent_report(job->identity, command.global.json ? torrent_part::all : 0U)) {
        add_torrent(json, *report);
        text += torrent_text(*report);
    }
    print_answer(command.global, json, text);
    return Exit::done;
}

Exit run_log(StoreCommand& command, const std::string& id) {
    static constexpr const char* names[] = {"note", "sent", "error", "received"};
    const CJobNode* job = one_job(command, id);
    if (job == nullptr) return Exit::failed;
    std::string text;
    ordered_json all = ordered_json::array();
    for (const CLogNode& line : command.engine.log_of(job->identity)) {
        all.push_back({{"time", iso_time_with_milliseconds(line.time)},
                       {"direction", names[static_cast<std::size_t>(line.direction)]},
                       {"text", line.text}});
        text += local_time(line.time / 1000) + " " + std::string(log_mark(line.direction)) +
                printable(line.text) + "\n";
    }
    print_answer(command.global, all, text);
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
        "show", "Show one job, and the parts of its file that are missing",
        on_store([shown](StoreCommand& command) { return run_show(command, *shown); }));
    show.add_option("ID", *shown, "The job's id, or the beginning of it")->required();
    const auto logged = std::make_shared<std::string>();
    CLI::App& log = commands.add_on_data_folder(
        "log", "Print the log of one job",
        on_store([logged](StoreCommand& command) { return run_log(command, *logged); }));
    log.add_option("ID", *logged, "The job's id, or the beginning of it")->required();
}

}  // namespace vantlow
