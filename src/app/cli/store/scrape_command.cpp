// `vantlow torrent scrape`: how many peers a torrent has, also one that rests.
#include <nlohmann/json.hpp>

#include "app/cli/engine_texts.h"
#include "app/cli/job_options.h"
#include "app/cli/report.h"
#include "app/cli/store/store_command.h"
#include "app/process/application.h"
#include "app/process/ending.h"
#include "app/terminal/display_text.h"
#include "base/text.h"
#include "bt/announce_thread.h"
#include "bt/magnet.h"
#include "bt/torrent_settings.h"
#include "engine/run_options.h"
#include "engine/torrent_report.h"
#include "platform/console.h"
#include "platform/process.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

/// The torrent, and whom to ask about it how.
struct Asked {
    std::vector<std::string> trackers;
    TorrentIdentity torrent;
};

Complaint find_asked(StoreCommand& command, const std::string& job_or_magnet, Asked& asked) {
    CJobNode fresh;
    const CJobNode* job = &fresh;
    if (is_magnet(job_or_magnet)) {
        fresh.address = to_utf16(job_or_magnet);
    } else {
        bool complete = true;
        const auto jobs = find_jobs(command, {job_or_magnet}, complete);
        if (!complete) return std::string();
        job = command.engine.find(jobs.front());
    }
    const Settings& settings = command.app.settings();
    const auto magnet = parse_magnet(to_utf8(job->address), default_magnet_trackers(settings));
    if (!magnet) return job_or_magnet + " is no torrent's.";
    asked.trackers = trackers_of(*magnet);
    asked.torrent.info_hash = magnet->info_hash;
    ProxyFault fault;
    asked.torrent.proxy = torrent_proxy(run_options_of(*job, settings, command.app.data_folder(), fault));
    asked.torrent.way = torrent_way(settings);
    if (Complaint complaint = text_of(fault)) return complaint;
    if (asked.trackers.empty()) return "The torrent names no tracker.";
    return std::nullopt;
}

// All at once, so that the wait is that for the slowest one.
std::vector<Outcome<SwarmCounts>> ask_all(const AnnounceServices& services, Asked& asked, bool verbose,
                                          StopSource& stop) {
    std::vector<Outcome<SwarmCounts>> answers(asked.trackers.size(), Result(Code::transient));
    ThreadPool pool;
    std::vector<ThreadPool::Running> threads(answers.size());
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const auto ask = [&, i] {
            ConsoleLog log(std::to_string(i + 1), verbose);
            CBTAnnounceThread one(services, asked.torrent, asked.trackers[i], AnnounceEvent::none, log, stop);
            answers[i] = one.scrape();
        };
        if (!pool.start(threads[i], ask).ok()) ask();
    }
    threads.clear();
    return answers;
}

ordered_json json_of(const std::string& tracker, const Outcome<SwarmCounts>& answer) {
    ordered_json json{{"tracker", without_keys(tracker)},
                      {"seeders", nullptr},
                      {"leechers", nullptr},
                      {"completed", nullptr},
                      {"failure", nullptr}};
    if (!answer) {
        json["failure"] = answer.failure().message();
        return json;
    }
    json["seeders"] = answer->seeders;
    json["leechers"] = answer->leechers;
    if (answer->completed >= 0) json["completed"] = answer->completed;
    return json;
}

std::string line_of(const std::string& tracker, const Outcome<SwarmCounts>& answer) {
    std::string text = printable(without_keys(tracker)) + ": ";
    if (!answer) return text + printable(answer.failure().message()) + "\n";
    text += std::to_string(answer->seeders) + " seeders, " + std::to_string(answer->leechers) + " leechers";
    if (answer->completed >= 0) text += ", fetched " + std::to_string(answer->completed) + " times";
    return text + "\n";
}

// Runs in this process: whoever runs the jobs need not wait for the trackers.
Exit run_scrape(StoreCommand& command, const std::string& job_or_magnet) {
    Asked asked;
    if (const Complaint complaint = find_asked(command, job_or_magnet, asked))
        return complaint->empty() ? Exit::failed : complain(*complaint);
    const InterruptWatch watch(stop_at_interrupt, &command.app.stop());
    ConnectionServices connections(&command.app.libraries().secur);
    const AnnounceServices services{connections, command.app.libraries(), command.app.settings()};
    const auto answers = ask_all(services, asked, command.global.verbose, command.app.stop());
    ordered_json json = ordered_json::array();
    std::string text;
    bool is_any = false;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        is_any = is_any || answers[i].ok();
        json.push_back(json_of(asked.trackers[i], answers[i]));
        text += line_of(asked.trackers[i], answers[i]);
    }
    print_answer(command.global, json, text);
    const Exit exit = command.app.stop().requested() ? Exit::interrupted : is_any ? Exit::done : Exit::failed;
    return leave(connections.resolver, exit);
}

}  // namespace

void add_scrape_command(CommandSet& commands) {
    CLI::App& group = commands.add_group("torrent", "Show, make, announce and check torrents");
    const auto torrent = std::make_shared<std::string>();
    CLI::App& scrape = commands.add_below(
        group, "scrape", "Ask the trackers how many seeders and leechers a torrent has; nothing is announced",
        on_store_as_it_is([torrent](StoreCommand& command) { return run_scrape(command, *torrent); }));
    scrape.add_option("TORRENT", *torrent, "A job's id, or the beginning of it, or a magnet link")
        ->required();
}

}  // namespace vantlow
