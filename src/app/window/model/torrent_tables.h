// The lists about a torrent as tables show them: its files, its peers, its trackers; and its pieces.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/window/model/job_details.h"
#include "base/clock.h"
#include "engine/torrent_report.h"

namespace vantlow {

enum class TorrentList { files, peers, trackers };

/// A column of such a list.
struct TorrentColumn {
    std::string_view title;  ///< to be translated
    int width = 0;           ///< device-independent pixels
    bool is_number = false;
};

/// The rows of one list. Cells are made when they are asked for. Belongs to the engine's thread.
class TorrentTable {
  public:
    explicit TorrentTable(TorrentList list) noexcept : list_(list) {}

    /// "Files", in the user's language.
    [[nodiscard]] std::string title() const;
    [[nodiscard]] std::span<const TorrentColumn> columns() const noexcept;
    /// The part of a report (torrent_part) that the list is made of.
    [[nodiscard]] unsigned part() const noexcept;
    [[nodiscard]] std::size_t rows() const noexcept;
    /// UTF-8 of one line; empty where it is not known. By an index of columns().
    [[nodiscard]] std::string cell(std::size_t row, int column) const;
    /// How much the file of a row is wanted; normal in the other lists.
    [[nodiscard]] FilePriority priority(std::size_t row) const noexcept;
    [[nodiscard]] TorrentList list() const noexcept { return list_; }
    /// The files' names, by their rows; none in the other lists.
    [[nodiscard]] std::vector<std::u16string> names() const;
    /// A sentence why there are no rows; empty while there are.
    [[nodiscard]] const std::string& note() const noexcept { return note_; }

    /// The change from the rows before: either `is_other` (all rows are new), or rows as they were numbered
    /// before and as they are now, both ascending.
    struct News {
        bool is_other = false;
        std::vector<std::size_t> removed;
        std::vector<std::size_t> inserted;
    };
    /// Takes the rows out of a report as of `now`. A peer keeps its row while others come and go.
    News take(TorrentReport report, Clock::time_point now);

  private:
    [[nodiscard]] std::string note_about(const TorrentReport& report) const;
    [[nodiscard]] std::string file_cell(const TorrentFile& file, int column) const;
    [[nodiscard]] std::string peer_cell(const TorrentPeer& peer, int column) const;
    [[nodiscard]] std::string tracker_cell(const TorrentTracker& tracker, int column) const;
    News take_peers(std::vector<TorrentPeer> peers);

    const TorrentList list_;
    std::vector<TorrentFile> files_;
    std::vector<TorrentPeer> peers_;  ///< by their addresses
    std::vector<std::string> peer_addresses_;
    std::vector<TorrentTracker> trackers_;
    std::string note_;
    Clock::time_point now_{};
};

/// The pieces, in ranges of equal ones, for picture_of(): the lengths are numbers of pieces. Empty while the
/// torrent is not described. Of a report with its pieces.
std::vector<SegmentRange> piece_ranges(const TorrentReport& report);
/// "high" and its kin, in the user's language.
std::string text_of(FilePriority priority);
/// A sentence about the pieces, or why there are none yet.
std::string piece_sentence(const TorrentReport& report);

}  // namespace vantlow
