#include "engine/torrent_report.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "base/codes.h"
#include "base/text.h"
#include "bt/announce.h"
#include "bt/magnet.h"
#include "bt/peer/piece_set.h"
#include "bt/torrent_content.h"
#include "bt/tracker_answer.h"
#include "engine/selection.h"
#include "platform/file.h"
#include "storage/file_list.h"
#include "storage/storage_state.h"
#include "store/job.h"

namespace vantlow {
namespace {

constexpr std::size_t longest_client = 80;
constexpr std::size_t id_head = 8;  // "-TR4050-"

// Programs by the two letters of their ids (BEP 20).
constexpr std::array<std::pair<std::string_view, std::string_view>, 12> programs{{{"A2", "aria2"},
                                                                                  {"AZ", "Vuze"},
                                                                                  {"BI", "BiglyBT"},
                                                                                  {"DE", "Deluge"},
                                                                                  {"KT", "KTorrent"},
                                                                                  {"LT", "libtorrent"},
                                                                                  {"TR", "Transmission"},
                                                                                  {"UT", "uTorrent"},
                                                                                  {"VL", "Vantlow"},
                                                                                  {"WW", "WebTorrent"},
                                                                                  {"lt", "rTorrent"},
                                                                                  {"qB", "qBittorrent"}}};

std::vector<TorrentTracker> trackers_at_rest(const Magnet& magnet) {
    std::vector<TorrentTracker> trackers;
    for (const std::string& address : trackers_of(magnet)) {
        TorrentTracker tracker;
        tracker.address = without_keys(address);
        tracker.tier = static_cast<int>(trackers.size());
        trackers.push_back(std::move(tracker));
    }
    return trackers;
}

// Which pieces are good: those of the saved state or, where the job has finished, all that its files have.
std::vector<bool> good_at_rest(const CJobNode& job, const std::optional<StorageState>& state,
                               const FileList& files, const TorrentChoice& choice,
                               const TorrentContent& content) {
    const auto count = static_cast<std::size_t>(content.piece_count());
    if (state && state->good.size() == count) return state->good;
    std::vector<bool> good(count, false);
    if (job.state != JobState::finished) return good;
    for (std::size_t file = 0; file < files.count(); ++file) {
        const ListedFile& listed = files.at(file);
        if (choice.files[file] == FilePriority::skip || listed.length == 0) continue;
        const auto first = static_cast<std::size_t>(listed.offset / content.piece_length);
        const auto last =
            static_cast<std::size_t>((listed.offset + listed.length - 1) / content.piece_length);
        std::fill(good.begin() + static_cast<std::ptrdiff_t>(first),
                  good.begin() + static_cast<std::ptrdiff_t>(last) + 1, true);
    }
    return good;
}

// Bytes of each file that stand in good pieces.
std::vector<std::int64_t> done_of(const TorrentContent& content, const FileList& files,
                                  const std::vector<bool>& good) {
    std::vector<std::int64_t> done(files.count(), 0);
    for (std::size_t piece = 0; piece < good.size(); ++piece) {
        if (!good[piece]) continue;
        const std::int64_t begin = static_cast<std::int64_t>(piece) * content.piece_length;
        const std::int64_t length = std::min(content.piece_length, content.total - begin);
        for (const FileSpan& span : files.spans(begin, length)) done[span.file] += span.length;
    }
    return done;
}

}  // namespace

std::string_view tracker_state_name(TorrentTracker::State state) noexcept {
    constexpr std::array<std::string_view, 5> names{"idle", "asking", "works", "fails", "ended"};
    return names[static_cast<std::size_t>(state)];
}

bool has_bit(std::string_view wire, std::size_t piece) noexcept {
    const unsigned bit = 0x80U >> (piece % 8);
    return piece / 8 < wire.size() && (static_cast<unsigned char>(wire[piece / 8]) & bit) != 0;
}

std::string_view torrent_phase_name(TorrentReport::Phase phase) noexcept {
    constexpr std::array<std::string_view, 5> names{"idle", "description", "check", "exchange", "sharing"};
    return names[static_cast<std::size_t>(phase)];
}

std::vector<std::string> trackers_of(const Magnet& magnet) {
    std::vector<std::string> trackers;
    for (const std::string& tracker : magnet.trackers) trackers.push_back(tracker_from_magnet(tracker));
    return distinct_trackers(trackers);
}

std::string peer_client(std::string_view version, std::string_view id) {
    std::string said = one_line(version).substr(0, longest_client);
    if (!said.empty()) return to_utf8(to_utf16(said));  // a letter that was cut is replaced
    if (id.size() < id_head || id[0] != '-' || id[id_head - 1] != '-') return {};
    const auto* const at = std::find_if(programs.begin(), programs.end(),
                                        [&](const auto& one) { return one.first == id.substr(1, 2); });
    if (at == programs.end()) return {};
    std::string name(at->second);
    char before = ' ';
    for (const char digit : id.substr(3, 3)) {
        if (std::isalnum(static_cast<unsigned char>(digit)) == 0) break;
        name += before;
        name += digit;
        before = '.';
    }
    return name;
}

void describe_torrent(const TorrentContent& content, const FileList& files, const TorrentChoice& choice,
                      const std::vector<bool>& good, unsigned parts, TorrentReport& report) {
    report.info_hash = content.info_hash;
    report.is_described = true;
    report.is_private = content.is_private;
    report.is_folder = content.is_folder;
    report.name = content.name;
    report.piece_count = content.piece_count();
    report.piece_length = content.piece_length;
    report.good_pieces = std::count(good.begin(), good.end(), true);
    report.is_sequential = choice.sequential;
    report.has_ends_first = choice.ends_first;
    if ((parts & torrent_part::pieces) != 0) {
        PieceSet set(static_cast<std::uint32_t>(good.size()));
        for (std::uint32_t piece = 0; piece < set.size(); ++piece) {
            if (good[piece]) set.add(piece);
        }
        report.good = set.wire();
    }
    if ((parts & torrent_part::files) == 0) return;
    const std::vector<std::int64_t> done = done_of(content, files, good);
    for (std::size_t file = 0; file < files.count(); ++file) {
        const ListedFile& listed = files.at(file);
        if (listed.padding) continue;
        report.files.push_back({listed.path, {}, listed.length, done[file], choice.files[file]});
    }
}

TorrentReport report_at_rest(const CJobNode& job, std::string_view info, unsigned parts) {
    TorrentReport report;
    report.size = job.file_size > 0 ? job.file_size : -1;
    if (job.tally) {
        report.received = job.tally->received;
        report.sent = job.tally->sent;
    }
    const auto magnet = parse_magnet(to_utf8(job.address), {});
    if (!magnet) return report;
    report.info_hash = magnet->info_hash;
    if ((parts & torrent_part::trackers) != 0) report.trackers = trackers_at_rest(*magnet);
    const auto content = info.empty() ? Outcome<TorrentContent>(Code::unsupported)
                                      : read_torrent_content(info, magnet->info_hash);
    if (!content) return report;
    const auto files = FileList::make(content->files);
    if (!files) return report;

    const bool has_place = !name_of(job.path).empty();
    std::optional<StorageState> state;
    if (has_place) state = load_storage_state(storage_state_path(job.path), to_hex(content->info_hash));
    auto choice = choice_of(*content, job.rules.get());
    if (!choice) choice = choice_of(*content, nullptr);
    if (!choice) return report;
    const std::vector<bool> good = good_at_rest(job, state, *files, *choice, *content);
    describe_torrent(*content, *files, *choice, good, parts | torrent_part::files, report);

    report.size = 0;
    std::size_t shown = 0;
    for (std::size_t file = 0; file < files->count(); ++file) {
        if (files->at(file).padding) continue;
        TorrentFile& one = report.files[shown++];
        if (one.is_chosen()) {
            report.size += one.size;
            report.done += one.done;
        }
        if (!has_place) continue;
        const bool has_name = state && state->places.names.contains(file);
        one.path = !content->is_folder
                       ? job.path
                       : join_path(job.path, has_name ? state->places.names.at(file) : one.name);
    }
    if ((parts & torrent_part::files) == 0) report.files.clear();
    return report;
}

}  // namespace vantlow
