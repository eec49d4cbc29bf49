// `vantlow torrent peers`, `trackers`, `files` and `pieces`, of a job, and `torrent check`.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>

#include "app/cli/report.h"
#include "app/cli/store/job_json.h"
#include "app/cli/store/store_command.h"
#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "bt/announce.h"
#include "bt/peer_store.h"
#include "bt/torrent_content.h"
#include "engine/selection.h"
#include "engine/torrent_files.h"
#include "platform/process.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t largest_document = std::size_t{256} * 1024 * 1024;

/// Lines of cells, each column as wide as its widest one. Cells are printable.
class Table {
  public:
    explicit Table(std::vector<std::string> head) { add(std::move(head)); }
    void add(std::vector<std::string> cells) {
        for (std::string& cell : cells) cell = printable(cell);
        widths_.resize(std::max(widths_.size(), cells.size()), 0);
        for (std::size_t i = 0; i < cells.size(); ++i)
            widths_[i] = std::max(widths_[i], display_width(cells[i]));
        lines_.push_back(std::move(cells));
    }
    [[nodiscard]] std::string text() const {
        std::string text;
        for (const auto& cells : lines_) {
            std::string line;
            for (std::size_t i = 0; i < cells.size(); ++i) {
                line += cells[i];
                line.append(static_cast<std::size_t>(widths_[i] - display_width(cells[i]) + 2), ' ');
            }
            text += std::string(trim_end(line)) + "\n";
        }
        return text;
    }

  private:
    static std::string_view trim_end(std::string_view line) {
        return line.substr(0, line.find_last_not_of(' ') + 1);
    }
    std::vector<std::vector<std::string>> lines_;
    std::vector<int> widths_;
};

std::string percent(double share) {
    return std::to_string(static_cast<int>(share * 100)) + " %";
}

std::string percent(std::int64_t done, std::int64_t size) {
    return percent(size > 0 ? static_cast<double>(done) / static_cast<double>(size) : 1);
}

// One letter for each fact, in a fixed order.
std::string flags_of(const TorrentPeer& peer) {
    std::string flags;
    const auto add = [&flags](bool is_so, char letter) { flags += is_so ? letter : '-'; };
    add(peer.is_incoming, 'I');
    add(peer.is_encrypted, 'E');
    add(peer.is_over_datagrams, 'U');
    add(peer.is_seed, 'S');
    add(peer.is_interesting, 'w');
    add(peer.chokes_us, 'c');
    add(peer.is_interested, 'W');
    add(peer.is_choked, 'C');
    return flags;
}

std::string peers_text(const TorrentReport& report) {
    if (report.peers.empty()) return "No peer is connected.\n";
    Table table({"ADDRESS", "CLIENT", "FLAGS", "HAS", "DOWN", "UP", "RECEIVED", "SENT"});
    for (const TorrentPeer& peer : report.peers) {
        table.add({peer_text(peer.address), peer.client, flags_of(peer), percent(peer.progress),
                   human_speed(peer.received_rate), human_speed(peer.sent_rate), human_size(peer.received),
                   human_size(peer.sent)});
    }
    return table.text() +
           "I called us, E encrypted, U over uTP, S has everything, w we want something,\n"
           "c gives us nothing now, W wants something, C gets nothing now\n";
}

std::string trackers_text(const TorrentReport& report) {
    if (report.trackers.empty()) return "There is no tracker.\n";
    const auto number = [](const std::optional<SwarmCounts>& counts, std::int64_t SwarmCounts::*which) {
        return counts ? std::to_string((*counts).*which) : std::string("--");
    };
    Table table({"TIER", "TRACKER", "STATE", "PEERS", "SEEDERS", "LEECHERS", "NEXT", "FAILURE"});
    for (const TorrentTracker& tracker : report.trackers) {
        const std::string next =
            tracker.next
                ? human_time(std::max<std::int64_t>(
                      std::chrono::ceil<std::chrono::seconds>(*tracker.next - Clock::now()).count(), 0))
                : std::string("--");
        table.add({std::to_string(tracker.tier) + (tracker.is_listed ? " (list)" : ""), tracker.address,
                   std::string(tracker_state_name(tracker.state)), std::to_string(tracker.peers),
                   number(tracker.counts, &SwarmCounts::seeders),
                   number(tracker.counts, &SwarmCounts::leechers), next, tracker.failure});
    }
    return table.text();
}

std::string files_text(const TorrentReport& report) {
    if (!report.is_described) return "The torrent's description is not known yet.\n";
    Table table({"NUMBER", "PRIORITY", "DONE", "SIZE", "FILE"});
    std::size_t number = 0;
    for (const TorrentFile& file : report.files) {
        table.add({std::to_string(++number), std::string(file_priority_name(file.priority)),
                   file.size > 0 ? percent(file.done, file.size) : "--", human_size(file.size),
                   to_utf8(file.name)});
    }
    return table.text();
}

// A line of 64 signs at most, each for as many pieces.
std::string pieces_text(const TorrentReport& report) {
    if (!report.is_described) return "The torrent's description is not known yet.\n";
    constexpr std::int64_t most_signs = 64;
    std::string text = std::to_string(report.good_pieces) + " of " + std::to_string(report.piece_count) +
                       " pieces of " + human_size(report.piece_length) + "\n";
    const std::int64_t signs = std::min(report.piece_count, most_signs);
    for (std::int64_t sign = 0; sign < signs; ++sign) {
        const std::int64_t first = report.piece_count * sign / signs;
        const std::int64_t last = report.piece_count * (sign + 1) / signs;
        std::int64_t good = 0;
        bool is_begun = false;
        for (std::int64_t piece = first; piece < last; ++piece) {
            good += has_bit(report.good, static_cast<std::size_t>(piece)) ? 1 : 0;
            is_begun = is_begun || has_bit(report.begun, static_cast<std::size_t>(piece));
        }
        text += good == last - first ? '#' : good > 0 ? '+' : is_begun ? '-' : '.';
    }
    text += "\n# whole, + partly, - in work, . missing";
    text += report.is_sequential ? "; in their order" : "; the rarest first";
    return text + (report.has_ends_first ? ", the ends of files before all else\n" : "\n");
}

/// A word that shows one side of a torrent's job.
struct Side {
    const char* word;
    const char* description;
    unsigned part;
    ordered_json (*json)(const TorrentReport&);
    std::string (*text)(const TorrentReport&);
};

constexpr Side sides[] = {
    {"peers", "List the peers that a torrent's job is connected to", torrent_part::peers, peers_json,
     peers_text},
    {"trackers", "List the trackers of a torrent's job, and their last answers", torrent_part::trackers,
     trackers_json, trackers_text},
    {"files", "List the files of a torrent's job, and how much of them is there", torrent_part::files,
     files_json, files_text},
    {"pieces", "Show which pieces of a torrent's job are there", torrent_part::pieces, pieces_json,
     pieces_text},
};

const CJobNode* find_torrent(StoreCommand& command, const std::string& id) {
    bool complete = true;
    const auto jobs = find_jobs(command, {id}, complete);
    if (!complete) return nullptr;
    const CJobNode* job = command.engine.find(jobs.front());
    if (kind_of(*job) == JobKind::torrent) return job;
    complain("The job " + id + " is no torrent's.");
    return nullptr;
}

Exit run_side(StoreCommand& command, const std::string& id, const Side& side) {
    const CJobNode* const job = find_torrent(command, id);
    if (job == nullptr) return Exit::failed;
    const TorrentReport report = command.engine.torrent_report(job->identity, side.part).value();
    print_answer(command.global, side.json(report), command.global.json ? "" : side.text(report));
    return Exit::done;
}

/// The wishes that `torrent files` and `torrent pieces` take, in the order of their meaning.
struct SteerOptions {
    std::optional<std::string> select;    ///< "1,3-5": these and no others; empty: all
    std::vector<std::string> priorities;  ///< "LEVEL=1,3-5"
    std::optional<bool> sequential;
    std::optional<bool> ends_first;
    std::vector<std::string> new_trackers;
    std::vector<std::string> old_trackers;  ///< addresses, also as they are shown, or tiers
};

Complaint check_steering(const SteerOptions& options) {
    if (options.select && !is_selection(*options.select))
        return "--select takes numbers and ranges (1,3-5), not \"" + *options.select + "\".";
    for (const std::string& text : options.priorities) {
        const auto equals = std::min(text.find('='), text.size());
        const bool has_files = equals + 1 < text.size() && is_selection(text.substr(equals + 1));
        if (!has_files || !file_priority_of(text.substr(0, equals)))
            return "--priority takes skip, low, normal or high, and files (high=1,3-5), not \"" + text +
                   "\".";
    }
    return std::nullopt;
}

// The priority of each file that the options name; none where they name one that there is not.
std::optional<std::map<std::size_t, FilePriority>> wanted_files(const SteerOptions& options,
                                                                const TorrentReport& report) {
    std::map<std::size_t, FilePriority> wanted;
    const std::size_t count = report.files.size();
    const auto set = [&](std::string_view text, FilePriority priority) {
        const auto numbers = select(text, count);
        for (const std::size_t number : numbers.value_or(std::vector<std::size_t>()))
            wanted[number + 1] = priority;
        return numbers.has_value();
    };
    if (options.select) {
        for (std::size_t number = 0; number < count; ++number) wanted[number + 1] = FilePriority::skip;
        // One that was chosen before keeps its priority.
        const auto numbers = select(*options.select, count);
        if (!numbers) return std::nullopt;
        for (const std::size_t number : *numbers) {
            const FilePriority before = report.files[number].priority;
            wanted[number + 1] = before == FilePriority::skip ? FilePriority::normal : before;
        }
    }
    for (const std::string& text : options.priorities) {
        const auto equals = text.find('=');
        if (!set(std::string_view(text).substr(equals + 1), *file_priority_of(text.substr(0, equals))))
            return std::nullopt;
    }
    return wanted;
}

// Whether this is a tracker that the torrent has from a list: it cannot be taken from it alone.
bool is_listed(StoreCommand& command, const Guid& job, const std::string& tracker) {
    const auto report = command.engine.torrent_report(job, torrent_part::trackers);
    return report && std::ranges::any_of(report->trackers, [&](const TorrentTracker& one) {
               return one.is_listed && (one.address == tracker || std::to_string(one.tier) == tracker ||
                                        one.address == without_keys(normalise_tracker(tracker)));
           });
}

// Adds trackers behind the others, once those are gone that are named.
Exit change_trackers(StoreCommand& command, const Guid& job, const SteerOptions& options) {
    const std::vector<std::string> before = command.engine.trackers(job);
    std::vector<std::string> after;
    std::set<std::string> met;
    for (std::size_t tier = 0; tier < before.size(); ++tier) {
        const std::array forms{before[tier], without_keys(before[tier]), std::to_string(tier)};
        bool leaves = false;
        for (const std::string& old : options.old_trackers) {
            if (std::ranges::find(forms, old) == forms.end() && normalise_tracker(old) != before[tier])
                continue;
            leaves = true;
            met.insert(old);
        }
        if (!leaves) after.push_back(before[tier]);
    }
    for (const std::string& old : options.old_trackers) {
        if (met.contains(old)) continue;
        return complain(is_listed(command, job, old)
                            ? "The tracker " + old + " comes from the list that Torrent/TrackerList names."
                            : "The torrent has no tracker " + old + ".");
    }
    after.insert(after.end(), options.new_trackers.begin(), options.new_trackers.end());
    return exit_of(command.engine.set_trackers(job, after), "The trackers");
}

Exit steer(StoreCommand& command, const std::string& id, const SteerOptions& options) {
    const CJobNode* const job = find_torrent(command, id);
    if (job == nullptr) return Exit::failed;
    const Guid identity = job->identity;
    if (options.sequential || options.ends_first) {
        JobEdit edit;
        edit.sequential = options.sequential;
        edit.ends_first = options.ends_first;
        if (const Exit exit = exit_of(command.engine.change(identity, edit), id); exit != Exit::done)
            return exit;
    }
    if (!options.new_trackers.empty() || !options.old_trackers.empty())
        return change_trackers(command, identity, options);
    if (!options.select && options.priorities.empty()) return Exit::done;
    const auto report = command.engine.torrent_report(identity, torrent_part::files);
    const auto wanted = report && report->is_described ? wanted_files(options, *report)
                                                       : std::map<std::size_t, FilePriority>();
    if (!wanted) return complain("The torrent has no such files.");
    return exit_of(command.engine.choose_files(identity, *wanted), id);
}

void add_file_options(CLI::App& word, SteerOptions& options) {
    word.add_option("--select", options.select,
                    "Fetch these files and no others from now on, also while it runs: 1,3-5 (empty: all)");
    word.add_option(
        "--priority", options.priorities,
        "LEVEL=FILES: how much files are wanted from now on: skip, low, normal or high (high=1,3-5)");
}

void add_piece_options(CLI::App& word, SteerOptions& options) {
    const std::map<std::string, bool> words{{"on", true}, {"off", false}};
    const auto add = [&](const char* name, std::optional<bool>& value, const char* description) {
        word.add_option_function<bool>(
                name, [&value](const bool& on) { value = on; }, description)
            ->transform(CLI::CheckedTransformer(words));
    };
    add("--sequential", options.sequential,
        "on or off: fetch the pieces in their order, to watch a film early");
    add("--ends-first", options.ends_first,
        "on or off: fetch the beginnings and ends of files before all else");
}

void add_tracker_options(CLI::App& word, SteerOptions& options) {
    word.add_option("--add", options.new_trackers, "Ask this tracker, too, from now on");
    word.add_option("--remove", options.old_trackers,
                    "Leave a tracker: its address, as it is or as it is shown, or its tier");
}

struct CheckOptions {
    std::string torrent;  ///< a job's id or a torrent file
    std::string folder;
};

/// The torrent to check, and where its files are.
struct Checked {
    TorrentContent content;
    PieceLayers layers;     ///< of a torrent of the second version
    std::u16string target;  ///< ends with a separator where only the folder around it is known
};

Complaint find_checked(StoreCommand& command, const CheckOptions& options, Checked& checked) {
    const std::u16string path = absolute_path(to_utf16(options.torrent));
    if (path_kind(path) == PathKind::file) {
        std::vector<std::byte> document;
        if (const FileError error = read_file(path, largest_document, document); !error.ok())
            return options.torrent + ": " + error.text();
        const std::string info = info_of_document(document);
        if (info.empty()) return options.torrent + ": not a torrent.";
        auto content = read_torrent_content(info);
        if (!content) return content.failure().message();
        checked.content = *std::move(content);
        checked.layers = layers_of_document(document, checked.content);
        checked.target = absolute_path(to_utf16(options.folder.empty() ? "." : options.folder));
        checked.target = join_path(checked.target, u"");
        return std::nullopt;
    }
    const CJobNode* const job = find_torrent(command, options.torrent);
    if (job == nullptr) return std::string();
    if (command.engine.torrent_info(*job).empty())
        return "The torrent's description is not known yet: there is nothing to check.";
    auto content = command.engine.torrent_content(*job);
    if (!content) return content.failure().message();
    checked.content = *std::move(content);
    checked.layers = command.engine.torrent_layers(checked.content);
    checked.target =
        options.folder.empty() ? job->path : join_path(absolute_path(to_utf16(options.folder)), u"");
    return std::nullopt;
}

// Runs in this process, also where another one runs the job, which need not wait then.
Exit run_check(StoreCommand& command, const CheckOptions& options) {
    Checked checked;
    if (const Complaint complaint = find_checked(command, options, checked))
        return complaint->empty() ? Exit::failed : complain(*complaint);
    if (missing_layers(checked.content, checked.layers) > 0)
        return complain("The torrent lacks hashes of its pieces, or has wrong ones: it cannot be checked.");
    const TorrentHashes hashes(checked.content, std::move(checked.layers));
    const InterruptWatch watch(stop_at_interrupt, &command.app.stop());
    const auto outcome = check_torrent_files(checked.content, hashes, checked.target, command.app.stop());
    if (!outcome) {
        if (outcome.failure().kind() == Kind::stopped) return Exit::interrupted;
        return complain(outcome.failure().message());
    }
    const std::string text = std::to_string(outcome->good) + " of " + std::to_string(outcome->pieces) +
                             " pieces are good, " + human_size(outcome->bytes) + ".\n";
    print_answer(command.global,
                 {{"pieces", outcome->pieces}, {"good", outcome->good}, {"bytes", outcome->bytes}}, text);
    return Exit::done;
}

}  // namespace

void add_torrent_job_commands(CommandSet& commands) {
    CLI::App& group = commands.add_group("torrent", "Show, make, announce and check torrents");
    for (const Side& side : sides) {
        const auto id = std::make_shared<std::string>();
        const auto steering = std::make_shared<SteerOptions>();
        CLI::App& word = commands.add_on_data_folder(
            group, side.word, side.description, on_store([id, steering, &side](StoreCommand& command) {
                const Exit exit = steer(command, *id, *steering);
                return exit == Exit::done ? run_side(command, *id, side) : exit;
            }),
            [steering] { return check_steering(*steering); });
        word.add_option("ID", *id, "The job's id, or the beginning of it")->required();
        if (side.part == torrent_part::files) add_file_options(word, *steering);
        if (side.part == torrent_part::pieces) add_piece_options(word, *steering);
        if (side.part == torrent_part::trackers) add_tracker_options(word, *steering);
    }
    const auto options = std::make_shared<CheckOptions>();
    CLI::App& check = commands.add_below(
        group, "check", "Hold the files on the disk against a torrent's hashes; nothing is changed",
        on_store_as_it_is([options](StoreCommand& command) { return run_check(command, *options); }));
    check.add_option("TORRENT", options->torrent, "A job's id, or the beginning of it, or a torrent file")
        ->required();
    check.add_option("-d,--dir", options->folder,
                     "The folder that the files, or their folder, stand in (default: the job's; of a torrent "
                     "file the current one)");
}

}  // namespace vantlow
