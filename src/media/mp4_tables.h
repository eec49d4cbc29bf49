// The tables of a joined track's samples (ISO/IEC 14496-12, 8.6 and 8.7).
//
// They are never held in memory: the samples go by twice. The first time the entries are counted, which tells
// how large the movie box will be and so where everything stands; the second time they are written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/result.h"
#include "media/media_output.h"
#include "media/mp4_groups.h"
#include "media/mp4_ranges.h"
#include "media/mp4_samples.h"

namespace vantlow {

/// The tables by their boxes.
enum class Mp4TableKind : std::size_t { stts, ctts, stss, stsc, stsz, chunks, first_sbgp };
inline constexpr std::size_t mp4_table_count =
    static_cast<std::size_t>(Mp4TableKind::first_sbgp) + most_groups;

/// The result of counting.
struct TrackTableSizes {
    std::array<std::uint64_t, mp4_table_count> entries{};
    std::uint64_t samples = 0;
    std::uint32_t size = 0;  ///< of the first sample
    bool one_size = true;    ///< and of all others
    bool has_compositions = false;
    bool has_negative_compositions = false;
    bool all_sync = true;
    std::int64_t last_chunk = 0;  ///< greatest place of a chunk in the joined media

    [[nodiscard]] std::uint64_t count(Mp4TableKind kind) const noexcept {
        return entries[static_cast<std::size_t>(kind)];
    }
    /// Whether the table is written.
    [[nodiscard]] bool needs(Mp4TableKind kind) const noexcept;
};
/// Bytes of a table's entry.
std::size_t mp4_entry_size(Mp4TableKind kind, bool long_offsets) noexcept;

/// How a track of a piece becomes a part of the joined one.
struct TrackMapping {
    std::int64_t start = 0;   ///< of the piece's media in the joined one, ticks
    std::int64_t factor = 1;  ///< a tick of the piece is factor / divisor joined ones
    std::int64_t divisor = 1;
    std::vector<std::uint32_t> descriptions;  ///< joined index (from 1) of each of the piece's (from 0)
    std::vector<GroupMapping> groups;
    const MediaRanges* ranges = nullptr;
    std::int64_t media_start = 0;  ///< of the piece's ranges in the joined media
};

/// Numbers written one after the other at a place of the output, or only counted.
class TableOutput {
  public:
    /// From here on they are written.
    void open(MediaOutput& output, std::int64_t position) {
        output_ = &output;
        position_ = position;
    }
    void put(std::uint64_t value, std::size_t bytes);
    [[nodiscard]] bool is_open() const noexcept { return output_ != nullptr; }
    void count(std::uint64_t entries = 1) noexcept { entries_ += entries; }
    [[nodiscard]] std::uint64_t entries() const noexcept { return entries_; }
    Result flush();

  private:
    MediaOutput* output_ = nullptr;
    std::int64_t position_ = 0;
    std::uint64_t entries_ = 0;
    std::vector<std::byte> buffer_;
    Result failure_;
};

/// Makes one track's tables of its pieces' samples.
class TrackTables {
  public:
    /// Counts.
    explicit TrackTables(std::size_t group_types) : group_types_(group_types) {}
    /// Writes: tables that are needed begin at these positions. The media begins at `media_position`.
    void write_to(MediaOutput& output, const TrackTableSizes& sizes,
                  const std::array<std::int64_t, mp4_table_count>& positions, std::int64_t media_position,
                  bool long_offsets);

    void begin_piece(const TrackMapping& mapping);
    void take(const SampleRun& run);
    /// Behind the last piece. Gives what was counted, or the failure of writing.
    Outcome<TrackTableSizes> finish();

  private:
    // The same value for a number of samples, which grows as long as the value stays.
    struct Runs {
        std::uint64_t count = 0;
        std::uint64_t value = 0;
    };
    TableOutput& table(Mp4TableKind kind) noexcept { return tables_[static_cast<std::size_t>(kind)]; }
    [[nodiscard]] std::int64_t scaled(std::int64_t time) const;
    void add_to(Runs& runs, Mp4TableKind kind, std::uint64_t count, std::uint64_t value);
    void end_runs(Runs& runs, Mp4TableKind kind);
    void take_times(const SampleRun& run);
    void take_one_by_one(const SampleRun& run);
    void place(std::int64_t time, std::uint32_t count, std::int64_t duration, std::int64_t composition);
    void take_chunk(const SampleRun& run);
    void end_chunk();
    void take_sizes(const SampleRun& run);
    void take_sync(const SampleRun& run);
    void take_groups(const SampleRun& run);

    std::size_t group_types_;
    TrackMapping mapping_;
    std::array<TableOutput, mp4_table_count> tables_;
    TrackTableSizes sizes_;
    std::int64_t media_position_ = 0;
    bool long_offsets_ = false;

    Runs durations_;
    Runs compositions_;
    std::array<Runs, most_groups> groups_{};
    bool has_last_ = false;
    std::int64_t last_time_ = 0;  ///< when the last sample is decoded; how long it lasts the next one tells
    std::int64_t last_duration_ = 0;  ///< of that sample, where none follows
    bool piece_begins_ = true;
    std::uint32_t chunk_samples_ = 0;
    std::uint32_t chunk_description_ = 0;
    std::uint64_t chunk_ = 0;
    std::uint32_t told_samples_ = 0;  ///< of the last stsc entry
    std::uint32_t told_description_ = 0;
};

}  // namespace vantlow
