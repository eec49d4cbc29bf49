// `vantlow torrent peers`, `trackers`, `files` and `pieces`, of a job, and `torrent check`.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/job_json.h"
#include "app/cli/store/store_command.h"
#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "bt/peer_store.h"
#include "bt/torrent_content.h"
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
           "I called us, E encrypted, S has everything, w we want something, c gives us nothing now,\n"
           "W wants something, C gets nothing now\n";
}

std::string trackers_text(const TorrentReport& report) {
    if (report.trackers.empty()) return "There is no tracker.\n";
    Table table({"TIER", "TRACKER", "STATE", "PEERS", "NEXT", "FAILURE"});
    for (const TorrentTracker& tracker : report.trackers) {
        const std::string next =
            tracker.next
                ? human_time(std::max<std::int64_t>(
                      std::chrono::ceil<std::chrono::seconds>(*tracker.next - Clock::now()).count(), 0))
                : std::string("--");
        table.add({std::to_string(tracker.tier), tracker.address,
                   std::string(tracker_state_name(tracker.state)), std::to_string(tracker.peers), next,
                   tracker.failure});
    }
    return table.text();
}

std::string files_text(const TorrentReport& report) {
    if (!report.is_described) return "The torrent's description is not known yet.\n";
    Table table({"NUMBER", "DONE", "SIZE", "FILE"});
    std::size_t number = 0;
    for (const TorrentFile& file : report.files) {
        table.add({std::to_string(++number), file.is_chosen ? percent(file.done, file.size) : "not chosen",
                   human_size(file.size), to_utf8(file.name)});
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
    const auto is_good = [&report](std::int64_t piece) {
        const auto byte = static_cast<unsigned char>(report.good[static_cast<std::size_t>(piece / 8)]);
        return (byte & (0x80U >> static_cast<unsigned>(piece % 8))) != 0;
    };
    for (std::int64_t sign = 0; sign < signs; ++sign) {
        const std::int64_t first = report.piece_count * sign / signs;
        const std::int64_t last = report.piece_count * (sign + 1) / signs;
        std::int64_t good = 0;
        for (std::int64_t piece = first; piece < last; ++piece) good += is_good(piece) ? 1 : 0;
        text += good == last - first ? '#' : good > 0 ? '+' : '.';
    }
    return text + "\n";
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

struct CheckOptions {
    std::string torrent;  ///< a job's id or a torrent file
    std::string folder;
};

/// The torrent to check, and where its files are.
struct Checked {
    std::string info;
    std::u16string target;  ///< ends with a separator where only the folder around it is known
};

Complaint find_checked(StoreCommand& command, const CheckOptions& options, Checked& checked) {
    const std::u16string path = absolute_path(to_utf16(options.torrent));
    if (path_kind(path) == PathKind::file) {
        std::vector<std::byte> document;
        if (const FileError error = read_file(path, largest_document, document); !error.ok())
            return options.torrent + ": " + error.text();
        checked.info = info_of_document(document);
        if (checked.info.empty()) return options.torrent + ": not a torrent.";
        checked.target = absolute_path(to_utf16(options.folder.empty() ? "." : options.folder));
        checked.target = join_path(checked.target, u"");
        return std::nullopt;
    }
    const CJobNode* const job = find_torrent(command, options.torrent);
    if (job == nullptr) return std::string();
    checked.info = command.engine.torrent_info(*job);
    if (checked.info.empty()) return "The torrent's description is not known yet: there is nothing to check.";
    checked.target =
        options.folder.empty() ? job->path : join_path(absolute_path(to_utf16(options.folder)), u"");
    return std::nullopt;
}

// Runs in this process, also where another one runs the job, which need not wait then.
Exit run_check(StoreCommand& command, const CheckOptions& options) {
    Checked checked;
    if (const Complaint complaint = find_checked(command, options, checked))
        return complaint->empty() ? Exit::failed : complain(*complaint);
    const auto content = read_torrent_content(checked.info);
    if (!content) return complain(content.failure().message());
    const InterruptWatch watch(stop_at_interrupt, &command.app.stop());
    const auto outcome = check_torrent_files(*content, checked.target, command.app.stop());
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
        CLI::App& word = commands.add_on_data_folder(
            group, side.word, side.description,
            on_store([id, &side](StoreCommand& command) { return run_side(command, *id, side); }));
        word.add_option("ID", *id, "The job's id, or the beginning of it")->required();
    }
    const auto options = std::make_shared<CheckOptions>();
    CLI::App& check = commands.add_below(
        group, "check", "Hold the files on the disk against a torrent's hashes; nothing is changed",
        on_store([options](StoreCommand& command) { return run_check(command, *options); }));
    check.add_option("TORRENT", options->torrent, "A job's id, or the beginning of it, or a torrent file")
        ->required();
    check.add_option("-d,--dir", options->folder,
                     "The folder that the files, or their folder, stand in (default: the job's; of a torrent "
                     "file the current one)");
}

}  // namespace vantlow
