// Samples that the movie box's tables describe (ISO/IEC 14496-12, 8.6 and 8.7).
#include <algorithm>
#include <limits>

#include "media/big_endian.h"
#include "media/mp4_samples.h"

namespace vantlow {
namespace {

constexpr std::uint32_t endless = std::numeric_limits<std::uint32_t>::max();

// A table of (count, value): gives the value that holds now, and for how many samples more. Where the table
// ends early, `behind` holds for all later samples.
class RunCursor {
  public:
    RunCursor(const MediaInput& input, const Mp4Table& table, std::uint32_t behind, bool keep_last = false)
        : cursor_(input, table, 8), behind_(behind), keep_last_(keep_last) {
        advance();
    }
    [[nodiscard]] std::uint32_t left() const noexcept { return left_; }
    [[nodiscard]] std::uint32_t value() const noexcept { return value_; }
    [[nodiscard]] bool failed() const noexcept { return cursor_.failed(); }
    void take(std::uint32_t count) {
        if (ended_) return;
        left_ -= count;
        if (left_ == 0) advance();
    }

  private:
    void advance() {
        while (left_ == 0) {
            const std::byte* const entry = cursor_.next();
            if (entry == nullptr) {
                ended_ = true;
                left_ = endless;
                if (!keep_last_ || !any_) value_ = behind_;
                return;
            }
            left_ = load_u32(entry);
            if (left_ > 0) value_ = load_u32(entry + 4);
            any_ = any_ || left_ > 0;
        }
    }

    TableCursor cursor_;
    std::uint32_t behind_;
    bool keep_last_;
    bool any_ = false;
    bool ended_ = false;
    std::uint32_t left_ = 0;
    std::uint32_t value_ = 0;
};

// Sizes of samples, of which equal ones are taken together.
class SizeCursor {
  public:
    SizeCursor(const MediaInput& input, const Mp4Track& track)
        : cursor_(input, bytes_of(track), track.size_bits >= 8 ? track.size_bits / 8 : 1),
          bits_(track.size_bits),
          one_size_(track.one_size) {
        if (one_size_ == 0) load();
    }
    // Takes up to `most` samples of one size; returns how many, and their size.
    std::uint32_t take(std::uint32_t most, std::uint32_t& size) {
        size = one_size_ != 0 ? one_size_ : next_;
        if (one_size_ != 0) return most;
        std::uint32_t count = 0;
        while (count < most && !ended_ && next_ == size) {
            ++count;
            load();
        }
        return count;
    }
    [[nodiscard]] bool failed() const noexcept { return cursor_.failed(); }

  private:
    static Mp4Table bytes_of(const Mp4Track& track) {
        Mp4Table table = track.sizes;
        if (track.size_bits == 4) table.count = table.count / 2 + table.count % 2;
        return table;
    }
    void load() {
        if (bits_ == 4 && half_) {
            half_ = false;
            next_ = pair_ & 0x0FU;
            return;
        }
        const std::byte* const entry = cursor_.next();
        ended_ = entry == nullptr;
        if (ended_) return;
        if (bits_ != 4) {
            next_ = static_cast<std::uint32_t>(load_big(entry, bits_ / 8));
            return;
        }
        pair_ = std::to_integer<std::uint32_t>(*entry);
        half_ = true;
        next_ = pair_ >> 4U;
    }

    TableCursor cursor_;
    unsigned bits_;
    std::uint32_t one_size_;
    std::uint32_t next_ = 0;
    std::uint32_t pair_ = 0;
    bool half_ = false;
    bool ended_ = false;
};

// Tells which samples can be decoded by themselves.
class SyncCursor {
  public:
    SyncCursor(const MediaInput& input, const Mp4Table& table)
        : cursor_(input, table, 4), all_(!table.present) {
        load(1);
    }
    // Returns how many samples (up to `most`) from this number on are alike, and in `sync` which kind they
    // are.
    std::uint32_t take(std::uint32_t number, std::uint32_t most, bool& sync) {
        sync = all_ || next_ == number;
        if (all_) return most;
        const std::uint32_t count = sync ? 1 : std::min(most, next_ - number);
        load(number + count);
        return count;
    }

    [[nodiscard]] bool failed() const noexcept { return cursor_.failed(); }

  private:
    void load(std::uint32_t from) {
        while (!all_ && next_ < from) {
            const std::byte* const entry = cursor_.next();
            next_ = entry == nullptr ? endless : load_u32(entry);
        }
    }

    TableCursor cursor_;
    bool all_;
    std::uint32_t next_ = 0;
};

class TableSamples {
  public:
    TableSamples(const MediaInput& input, const Mp4Track& track)
        : input_(input),
          track_(track),
          chunks_(input, track.chunks, track.long_offsets ? 8 : 4),
          chunk_runs_(input, track.chunk_runs, 12),
          sizes_(input, track),
          times_(input, track.times, 0, true),
          compositions_(input, track.compositions, 0),
          sync_(input, track.sync) {
        for (const Mp4Groups& groups : track.groups) {
            groups_.emplace_back(input, groups.map, groups.default_index);
        }
        read_chunk_run();
    }

    // The next run; false at the end and after a failure.
    bool next(SampleRun& run);
    [[nodiscard]] const Result& failure() const noexcept { return failure_; }
    [[nodiscard]] std::int64_t end_time() const noexcept { return time_; }

  private:
    bool fail(std::string_view what) {
        failure_ = input_.damaged(track_.offset, what);
        return false;
    }
    void read_chunk_run();
    bool next_chunk();
    [[nodiscard]] bool any_failed() const {
        return chunks_.failed() || chunk_runs_.failed() || sizes_.failed() || times_.failed() ||
               compositions_.failed() || sync_.failed() ||
               std::any_of(groups_.begin(), groups_.end(),
                           [](const RunCursor& group) { return group.failed(); });
    }

    const MediaInput& input_;
    const Mp4Track& track_;
    TableCursor chunks_;
    TableCursor chunk_runs_;
    SizeCursor sizes_;
    RunCursor times_;
    RunCursor compositions_;
    SyncCursor sync_;
    std::vector<RunCursor> groups_;
    Result failure_;

    std::uint32_t sample_ = 0;  // taken so far
    std::int64_t time_ = 0;
    std::int64_t offset_ = 0;
    std::uint32_t chunk_ = 0;  // number of the current one, from 1
    std::uint32_t left_in_chunk_ = 0;
    std::uint32_t per_chunk_ = 0;
    std::uint32_t description_ = 0;
    std::uint32_t next_first_chunk_ = endless;  // where the next entry of chunk_runs_ begins to hold
    std::uint32_t next_per_chunk_ = 0;
    std::uint32_t next_description_ = 0;
    bool chunk_is_new_ = false;
};

void TableSamples::read_chunk_run() {
    const std::byte* const entry = chunk_runs_.next();
    next_first_chunk_ = entry == nullptr ? endless : load_u32(entry);
    if (entry == nullptr) return;
    next_per_chunk_ = load_u32(entry + 4);
    next_description_ = load_u32(entry + 8);
}

bool TableSamples::next_chunk() {
    while (left_in_chunk_ == 0) {
        const std::byte* const entry = chunks_.next();
        if (entry == nullptr) return fail("the track has more samples than its chunks hold");
        const std::uint64_t offset = track_.long_offsets ? load_u64(entry) : load_u32(entry);
        if (offset > static_cast<std::uint64_t>(input_.size())) {
            return fail("samples lie beyond the end of the file, at " + std::to_string(offset));
        }
        offset_ = static_cast<std::int64_t>(offset);
        ++chunk_;
        while (next_first_chunk_ <= chunk_) {
            per_chunk_ = next_per_chunk_;
            description_ = next_description_;
            read_chunk_run();
        }
        left_in_chunk_ = per_chunk_;
    }
    if (description_ == 0 || description_ > track_.descriptions.size()) {
        return fail("samples whose description is missing");
    }
    chunk_is_new_ = true;
    return true;
}

bool TableSamples::next(SampleRun& run) {
    if (sample_ == track_.samples) return false;
    if (left_in_chunk_ == 0 && !next_chunk()) return false;
    std::uint32_t count = std::min(left_in_chunk_, track_.samples - sample_);
    count = std::min({count, times_.left(), compositions_.left()});
    for (const RunCursor& group : groups_) count = std::min(count, group.left());
    count = sizes_.take(sync_.take(sample_ + 1, count, run.sync), run.size);
    if (count == 0 || any_failed()) return fail("the tables of the track cannot be read");

    run.offset = offset_;
    run.count = count;
    run.duration = times_.value();
    run.decode_time = time_;
    run.composition = static_cast<std::int32_t>(compositions_.value());
    run.description = description_ - 1;
    run.starts_chunk = chunk_is_new_;
    for (std::size_t i = 0; i < groups_.size(); ++i) run.groups[i] = groups_[i].value();

    const std::uint64_t bytes = std::uint64_t{count} * run.size;
    if (bytes > static_cast<std::uint64_t>(input_.size() - offset_)) {
        return fail("samples lie beyond the end of the file, at " + std::to_string(offset_));
    }
    offset_ += static_cast<std::int64_t>(bytes);
    const std::uint64_t length = std::uint64_t{run.duration} * count;
    if (length > static_cast<std::uint64_t>(longest_media_time - time_))
        return fail("the track is impossibly long");
    time_ += static_cast<std::int64_t>(length);
    sample_ += count;
    left_in_chunk_ -= count;
    chunk_is_new_ = false;
    times_.take(count);
    compositions_.take(count);
    for (RunCursor& group : groups_) group.take(count);
    return true;
}

}  // namespace

Result walk_movie_samples(const MediaInput& input, const Mp4Piece& piece, SampleSink& sink,
                          std::vector<std::int64_t>& ends, bool& go_on) {
    for (std::size_t i = 0; i < piece.tracks.size(); ++i) {
        TableSamples samples(input, piece.tracks[i]);
        SampleRun run;
        while (samples.next(run)) {
            go_on = sink.take(i, run);
            if (!go_on) return {};
        }
        if (!samples.failure().ok()) return samples.failure();
        ends[i] = samples.end_time();
    }
    return {};
}

}  // namespace vantlow
