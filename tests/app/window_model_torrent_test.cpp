// The lists and the pieces of a torrent, as the window shows them.
#include <gtest/gtest.h>

#include "app/window/model/file_endings.h"
#include "app/window/model/torrent_tables.h"
#include "base/text.h"

namespace vantlow {
namespace {

using Texts = std::vector<std::string>;
constexpr Clock::time_point now{std::chrono::hours(1000)};

Texts lines_of(const TorrentTable& table) {
    Texts lines;
    for (std::size_t row = 0; row < table.rows(); ++row) {
        std::string line;
        for (int column = 0; column < static_cast<int>(table.columns().size()); ++column)
            line += (column > 0 ? "|" : "") + table.cell(row, column);
        lines.push_back(line);
    }
    return lines;
}

TorrentPeer peer_at(std::uint8_t last) {
    TorrentPeer peer;
    peer.address = *SocketAddress::from_literal("10.0.0." + std::to_string(last), 6881);
    return peer;
}

TEST(WindowTorrents, ListsShowWhatAReportSays) {
    TorrentReport report;
    report.files = {
        {u"a/one\n.bin", {}, 2048, 2047}, {u"empty", {}, 0, 0}, {u"two", {}, 10, 0, FilePriority::skip}};
    using State = TorrentTracker::State;
    report.trackers = {{"http://a/x", 0, State::works, {}, 7, {}, now + std::chrono::seconds(65)},
                       {"udp://b", 1, State::fails, "no\tsuch torrent", 3, {}, now - std::chrono::seconds(2)},
                       {"c", 2, State::asking, {}, 0, {}, {}},
                       {"d", 3, State::ended, {}, 0, {}, {}},
                       {"e", 4, State::idle, {}, 0, {}, {}}};
    TorrentPeer giver = peer_at(2);
    giver.client = "Tool\x1B[31m 1";
    giver.is_interesting = giver.is_encrypted = giver.is_over_datagrams = giver.is_seed = true;
    giver.chokes_us = false;
    giver.received_rate = 2048;
    TorrentPeer taker = peer_at(1);
    taker.is_interested = taker.is_interesting = taker.is_incoming = true;
    taker.progress = 0.9999;
    taker.sent_rate = 1024;
    report.peers = {giver, taker};
    const struct {
        TorrentList list;
        Texts lines;
    } cases[] = {
        {TorrentList::files,
         {"a/one?.bin|2.0 KiB|99 %|normal", "empty|0 B|100 %|normal", "two|10 B|0 %|left out"}},
        {TorrentList::peers,
         {"10.0.0.1:6881||99 %||1.0 KiB/s|makes us wait, waits for us, called us",
          "10.0.0.2:6881|Tool?[31m 1|100 %|2.0 KiB/s||gives, encrypted, by uTP"}},
        {TorrentList::trackers,
         {"http://a/x|answers|7|1:05|", "udp://b|fails||0:00|no?such torrent", "c|is asked|||",
          "d|is not asked again|0||", "e|not in use|||"}},
    };
    for (const auto& one : cases) {
        TorrentTable table(one.list);
        EXPECT_EQ(table.take(report, now).is_other, one.list != TorrentList::peers);
        EXPECT_EQ(lines_of(table), one.lines) << table.title();
        const auto again = table.take(report, now);
        EXPECT_TRUE(!again.is_other && again.removed.empty() && again.inserted.empty()) << table.title();
        EXPECT_EQ(table.note(), "") << table.title();
        table.take({}, now);
        EXPECT_EQ(table.rows(), 0U);
        EXPECT_NE(table.note(), "") << table.title();
    }
}

TEST(WindowTorrents, FilesAreGroupedByTheirEndings) {
    Texts groups;
    for (const EndingGroup& group :
         group_by_ending({u"a/1.JPG", u"film.mkv", u"a.b\\README", u"2.jpg", u".hidden", u"Vol. 2 of it",
                          u"end.", u"a/b.c/3.jpg", u"x.verylongending", u"4.\u00c4pf", u"5.mkv"})) {
        std::string line = label_of(group) + ":";
        for (const std::size_t file : group.files) line += " " + std::to_string(file);
        groups.push_back(line);
    }
    EXPECT_EQ(groups, (Texts{".jpg (3): 0 3 7", ".mkv (2): 1 10", ".\u00e4pf (1): 9"}));
    std::vector<std::u16string> many;
    for (int i = 0; i < 100; ++i) many.push_back(u"x." + to_utf16(std::to_string(i)));
    EXPECT_EQ(group_by_ending(many).size(), most_endings);
}

TEST(WindowTorrents, PeersKeepTheirRowsWhileOthersComeAndGo) {
    TorrentTable table(TorrentList::peers);
    Texts kept;
    // Two connections to one address are two rows.
    for (const std::vector<std::uint8_t>& present : std::vector<std::vector<std::uint8_t>>{
             {5, 3}, {3, 5, 9, 1}, {9, 5}, {}, {4, 4, 2}, {4}, {1, 2, 3, 4, 4, 5}, {8}}) {
        TorrentReport report;
        for (const std::uint8_t last : present) report.peers.push_back(peer_at(last));
        const auto news = table.take(report, now);
        for (auto row = news.removed.rbegin(); row != news.removed.rend(); ++row)
            kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(*row));
        for (const std::size_t row : news.inserted)
            kept.insert(kept.begin() + static_cast<std::ptrdiff_t>(row), table.cell(row, 0));
        Texts shown;
        for (std::size_t row = 0; row < table.rows(); ++row) shown.push_back(table.cell(row, 0));
        ASSERT_EQ(kept, shown);
        ASSERT_EQ(table.rows(), present.size());
    }
}

TEST(WindowTorrents, PiecesAreRangesAndASentence) {
    TorrentReport report;
    EXPECT_EQ(piece_sentence(report), "The torrent's description is not known yet.");
    EXPECT_TRUE(piece_ranges(report).empty());
    report.is_described = true;
    report.piece_count = 11;
    report.piece_length = 16384;
    report.good = "\xE1\x20";  // 0, 1, 2, 7 and 10
    report.begun = "\x90";     // 0, which is good by now, and 3
    report.good_pieces = 5;
    std::string drawn;
    for (const SegmentRange& range : piece_ranges(report)) {
        EXPECT_EQ(range.offset, static_cast<std::int64_t>(drawn.size()));
        drawn.append(static_cast<std::size_t>(range.length), ".-#"[static_cast<int>(range.state)]);
    }
    EXPECT_EQ(drawn, "###-...#..#");
    EXPECT_EQ(piece_sentence(report), "5 of 11 pieces are there, each of 16.0 KiB.");
    report.availability = {0, 0, 1, 0, 2, 1, 0, 1, 1, 1, 1};
    EXPECT_EQ(piece_sentence(report),
              "5 of 11 pieces are there, each of 16.0 KiB. No connected peer has 2 of the missing ones.");
    report.phase = TorrentReport::Phase::check;
    report.checked_pieces = 1;
    EXPECT_EQ(piece_sentence(report), "The files are being checked: 1 piece so far.");
}

}  // namespace
}  // namespace vantlow
