#include "app/window/model/torrent_tables.h"

#include <algorithm>
#include <array>
#include <utility>

#include "app/terminal/display_text.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "bt/peer_store.h"

namespace vantlow {
namespace {

enum FileColumn { file_name_column, file_size_column, file_done_column, file_priority_column };
constexpr std::array<TorrentColumn, 4> file_columns{{{to_translate("Name"), 260},
                                                     {to_translate("Size"), 90, true},
                                                     {to_translate("Done"), 70, true},
                                                     {to_translate("Priority"), 90}}};

enum PeerColumn {
    peer_address_column,
    peer_client_column,
    peer_done_column,
    peer_down_column,
    peer_up_column,
    peer_signs_column
};
constexpr std::array<TorrentColumn, 6> peer_columns{{{to_translate("Address"), 140},
                                                     {to_translate("Program"), 115},
                                                     {to_translate("Done"), 60, true},
                                                     {to_translate("Down"), 80, true},
                                                     {to_translate("Up"), 80, true},
                                                     {to_translate("Connection"), 260}}};

enum TrackerColumn {
    tracker_address_column,
    tracker_state_column,
    tracker_peers_column,
    tracker_next_column,
    tracker_message_column
};
constexpr std::array<TorrentColumn, 5> tracker_columns{{{to_translate("Address"), 230},
                                                        {to_translate("State"), 90},
                                                        {to_translate("Peers"), 55, true},
                                                        {to_translate("Again in"), 85, true},
                                                        {to_translate("Message"), 260}}};

std::string text_of(TorrentTracker::State state) {
    switch (state) {
        case TorrentTracker::State::idle:
            return tr("not in use");
        case TorrentTracker::State::asking:
            return tr("is asked");
        case TorrentTracker::State::works:
            return tr("answers");
        case TorrentTracker::State::fails:
            return tr("fails");
        case TorrentTracker::State::ended:
            return tr("is not asked again");
    }
    return {};
}

// The state of a connection in words, which can also be heard.
std::string signs_of(const TorrentPeer& peer) {
    std::string text;
    const auto add = [&text](bool holds, std::string_view sign) {
        if (!holds) return;
        if (!text.empty()) text += ", ";
        text += tr(sign);
    };
    add(peer.is_interesting && !peer.chokes_us, to_translate("gives"));
    add(peer.is_interesting && peer.chokes_us, to_translate("makes us wait"));
    add(peer.is_interested && !peer.is_choked, to_translate("takes"));
    add(peer.is_interested && peer.is_choked, to_translate("waits for us"));
    add(peer.is_encrypted, to_translate("encrypted"));
    add(peer.is_over_datagrams, to_translate("by uTP"));
    add(peer.is_incoming, to_translate("called us"));
    return text;
}

}  // namespace

std::string TorrentTable::title() const {
    switch (list_) {
        case TorrentList::files:
            return tr("Files");
        case TorrentList::peers:
            return tr("Peers");
        case TorrentList::trackers:
            return tr("Trackers");
    }
    return {};
}

std::span<const TorrentColumn> TorrentTable::columns() const noexcept {
    if (list_ == TorrentList::files) return file_columns;
    if (list_ == TorrentList::peers) return peer_columns;
    return tracker_columns;
}

unsigned TorrentTable::part() const noexcept {
    if (list_ == TorrentList::files) return torrent_part::files;
    return list_ == TorrentList::peers ? torrent_part::peers : torrent_part::trackers;
}

std::size_t TorrentTable::rows() const noexcept {
    return files_.size() + peers_.size() + trackers_.size();  // two of them are empty
}

std::string TorrentTable::cell(std::size_t row, int column) const {
    if (list_ == TorrentList::files) return file_cell(files_[row], column);
    if (list_ == TorrentList::peers) {
        if (column == peer_address_column) return peer_addresses_[row];
        return peer_cell(peers_[row], column);
    }
    return tracker_cell(trackers_[row], column);
}

FilePriority TorrentTable::priority(std::size_t row) const noexcept {
    return row < files_.size() ? files_[row].priority : FilePriority::normal;
}

std::string TorrentTable::file_cell(const TorrentFile& file, int column) const {
    switch (column) {
        case file_name_column:
            return shown(file.name);
        case file_size_column:
            return size_text(file.size);
        case file_done_column:
            return file.size == 0 ? percent_text(1, 1) : percent_text(file.done, file.size);
        default:
            return text_of(file.priority);
    }
}

std::string TorrentTable::peer_cell(const TorrentPeer& peer, int column) const {
    constexpr std::int64_t whole = 1000;
    switch (column) {
        case peer_client_column:
            return printable(peer.client);
        case peer_done_column:
            return percent_text(peer.is_seed ? whole : static_cast<std::int64_t>(peer.progress * whole),
                                whole);
        case peer_down_column:
            return speed_text(peer.received_rate);
        case peer_up_column:
            return speed_text(peer.sent_rate);
        default:
            return signs_of(peer);
    }
}

std::string TorrentTable::tracker_cell(const TorrentTracker& tracker, int column) const {
    using State = TorrentTracker::State;
    switch (column) {
        case tracker_address_column:
            return printable(tracker.address);
        case tracker_state_column:
            return text_of(tracker.state);
        case tracker_peers_column: {
            const bool has_answered = tracker.state == State::works || tracker.state == State::ended;
            return has_answered ? std::to_string(tracker.peers) : std::string();
        }
        case tracker_next_column:
            if (!tracker.next) return {};
            return time_left_text(std::max<std::int64_t>(
                std::chrono::duration_cast<std::chrono::seconds>(*tracker.next - now_).count(), 0));
        default:
            return printable(tracker.failure);
    }
}

std::vector<std::u16string> TorrentTable::names() const {
    std::vector<std::u16string> names;
    for (const TorrentFile& file : files_) names.push_back(file.name);
    return names;
}

std::string TorrentTable::note_about(const TorrentReport& report) const {
    switch (list_) {
        case TorrentList::files:
            return report.files.empty() ? piece_sentence(report) : std::string();
        case TorrentList::peers:
            if (!report.peers.empty()) return {};
            return report.phase == TorrentReport::Phase::idle ? tr("The torrent does not run.")
                                                              : tr("No peer is connected at the moment.");
        case TorrentList::trackers:
            return report.trackers.empty() ? tr("No tracker is asked: peers are found in other ways.")
                                           : std::string();
    }
    return {};
}

TorrentTable::News TorrentTable::take(TorrentReport report, Clock::time_point now) {
    now_ = now;
    note_ = note_about(report);
    if (list_ == TorrentList::peers) return take_peers(std::move(report.peers));
    const std::size_t before = rows();
    if (list_ == TorrentList::files) files_ = std::move(report.files);
    if (list_ == TorrentList::trackers) trackers_ = std::move(report.trackers);
    return {rows() != before, {}, {}};
}

TorrentTable::News TorrentTable::take_peers(std::vector<TorrentPeer> peers) {
    std::vector<std::pair<std::string, std::size_t>> order;
    for (std::size_t i = 0; i < peers.size(); ++i) order.emplace_back(peer_text(peers[i].address), i);
    std::ranges::sort(order);
    std::vector<TorrentPeer> sorted;
    std::vector<std::string> addresses;
    for (auto& [address, at] : order) {
        sorted.push_back(std::move(peers[at]));
        addresses.push_back(std::move(address));
    }
    News news;
    std::size_t old_row = 0;
    std::size_t row = 0;
    while (old_row < peer_addresses_.size() || row < addresses.size()) {
        const bool is_old_over = old_row == peer_addresses_.size();
        const bool is_new_over = row == addresses.size();
        if (!is_old_over && !is_new_over && peer_addresses_[old_row] == addresses[row]) {
            ++old_row;
            ++row;
        } else if (is_new_over || (!is_old_over && peer_addresses_[old_row] < addresses[row])) {
            news.removed.push_back(old_row++);
        } else {
            news.inserted.push_back(row++);
        }
    }
    peers_ = std::move(sorted);
    peer_addresses_ = std::move(addresses);
    return news;
}

std::vector<SegmentRange> piece_ranges(const TorrentReport& report) {
    std::vector<SegmentRange> ranges;
    if (report.good.empty()) return ranges;
    for (std::int64_t piece = 0; piece < report.piece_count; ++piece) {
        const bool is_good = has_bit(report.good, static_cast<std::size_t>(piece));
        const bool is_begun = has_bit(report.begun, static_cast<std::size_t>(piece));
        const SegmentState state = is_good    ? SegmentState::done
                                   : is_begun ? SegmentState::working
                                              : SegmentState::missing;
        if (ranges.empty() || ranges.back().state != state) ranges.push_back({piece, 0, state, 0});
        ++ranges.back().length;
    }
    return ranges;
}

std::string text_of(FilePriority priority) {
    switch (priority) {
        case FilePriority::skip:
            return tr("left out");
        case FilePriority::low:
            return tr("low");
        case FilePriority::normal:
            return tr("normal");
        case FilePriority::high:
            return tr("high");
    }
    return {};
}

std::string piece_sentence(const TorrentReport& report) {
    using Phase = TorrentReport::Phase;
    if (report.phase == Phase::check)
        return trn("The files are being checked: %1 piece so far.",
                   "The files are being checked: %1 pieces so far.", report.checked_pieces);
    if (!report.is_described)
        return report.phase == Phase::description
                   ? tr("The torrent's description is asked for among its peers.")
                   : tr("The torrent's description is not known yet.");
    std::string text = fill(tr("%1 of %2 pieces are there, each of %3."),
                            {std::to_string(report.good_pieces), std::to_string(report.piece_count),
                             size_text(report.piece_length)});
    std::int64_t lacked = 0;
    for (std::size_t piece = 0; piece < report.availability.size(); ++piece) {
        if (report.availability[piece] == 0 && !has_bit(report.good, piece)) ++lacked;
    }
    if (report.is_sequential) text += " " + tr("They come in their order.");
    if (lacked > 0)
        text += " " + fill(tr("No connected peer has %1 of the missing ones."), {std::to_string(lacked)});
    return text;
}

}  // namespace vantlow
