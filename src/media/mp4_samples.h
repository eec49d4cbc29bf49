// The samples of an MP4 piece, one run after the other, however its tables or fragments describe them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/result.h"
#include "media/media_input.h"
#include "media/mp4_piece.h"

namespace vantlow {

/// Samples that lie next to each other in the file and have everything in common. Times are in ticks of their
/// track; 0 is the track's first sample.
struct SampleRun {
    std::int64_t offset = 0;  ///< of the first one in the file
    std::uint32_t count = 0;
    std::uint32_t size = 0;         ///< bytes of each
    std::uint32_t duration = 0;     ///< of each
    std::int64_t decode_time = 0;   ///< of the first one
    std::int32_t composition = 0;   ///< from the decoding to the showing of each
    std::uint32_t description = 0;  ///< index in the track's, from 0
    bool sync = true;
    bool starts_chunk = false;
    /// The index, from 1, in each of the track's group types; 0: in no group.
    std::array<std::uint32_t, most_groups> groups{};
};

/// A receiver of samples.
class SampleSink {
  public:
    SampleSink() = default;
    SampleSink(const SampleSink&) = delete;
    SampleSink& operator=(const SampleSink&) = delete;
    virtual ~SampleSink() = default;

    /// A track's fragments begin at this time of the track; before the first of its fragments' samples.
    virtual void begins_at(std::size_t /*track*/, std::int64_t /*time*/) {}
    /// The next samples of a track. False ends the walk.
    virtual bool take(std::size_t track, const SampleRun& run) = 0;
};

/// Shows the sink all samples: those of the movie box track by track, then those of the fragments in the
/// order of the file. Every run's bytes are inside the file. The tables are believed only as far as the file
/// goes, so time and memory are bounded by its size. Also ok when the sink ended the walk.
Result walk_samples(const MediaInput& input, const Mp4Piece& piece, SampleSink& sink);

/// The two steps of walk_samples. `ends`: the tracks' next decoding times.
Result walk_movie_samples(const MediaInput& input, const Mp4Piece& piece, SampleSink& sink,
                          std::vector<std::int64_t>& ends, bool& go_on);
Result walk_fragment_samples(const MediaInput& input, const Mp4Piece& piece, SampleSink& sink,
                             std::vector<std::int64_t>& ends);

/// Decoding times stay below this.
inline constexpr std::int64_t longest_media_time = std::int64_t{1} << 60;
/// The longest time that the tables can hold for one sample, ticks.
inline constexpr std::int64_t longest_table_time = 0x7FFFFFFF;

/// Entries of a table in the file, one after the other.
class TableCursor {
  public:
    TableCursor(const MediaInput& input, const Mp4Table& table, std::size_t entry_size);
    /// The next entry, until the next call; null at the end and when it cannot be read.
    const std::byte* next();
    [[nodiscard]] bool failed() const noexcept { return failed_; }

  private:
    const MediaInput* input_;
    std::size_t entry_size_;
    std::int64_t offset_;
    std::uint32_t left_;  ///< entries that are not in the buffer
    std::vector<std::byte> buffer_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    bool failed_ = false;
};

}  // namespace vantlow
