#include "media/mp4_tables.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "media/big_endian.h"
#include "media/mp4_timeline.h"

namespace vantlow {
namespace {

constexpr std::size_t write_buffer = 32 * 1024;

Mp4TableKind sbgp(std::size_t type) noexcept {
    return static_cast<Mp4TableKind>(static_cast<std::size_t>(Mp4TableKind::first_sbgp) + type);
}

}  // namespace

bool TrackTableSizes::needs(Mp4TableKind kind) const noexcept {
    switch (kind) {
        case Mp4TableKind::ctts:
            return has_compositions;
        case Mp4TableKind::stss:
            return !all_sync;
        case Mp4TableKind::stsz:
            return !one_size || size == 0;  // a common size of 0 would announce a table
        default:
            return true;
    }
}

std::size_t mp4_entry_size(Mp4TableKind kind, bool long_offsets) noexcept {
    switch (kind) {
        case Mp4TableKind::stss:
        case Mp4TableKind::stsz:
            return 4;
        case Mp4TableKind::stsc:
            return 12;
        case Mp4TableKind::chunks:
            return long_offsets ? 8 : 4;
        default:
            return 8;
    }
}

void TableOutput::put(std::uint64_t value, std::size_t bytes) {
    if (output_ == nullptr || !failure_.ok()) return;
    if (buffer_.size() + bytes > write_buffer) (void)flush();  // a failure is kept for the end
    buffer_.resize(buffer_.size() + bytes);
    store_big(buffer_.data() + buffer_.size() - bytes, value, bytes);
}

Result TableOutput::flush() {
    if (output_ == nullptr || !failure_.ok()) return failure_;
    buffer_.reserve(write_buffer);
    failure_ = output_->write_at(position_, buffer_);
    position_ += static_cast<std::int64_t>(buffer_.size());
    buffer_.clear();
    return failure_;
}

void TrackTables::write_to(MediaOutput& output, const TrackTableSizes& sizes,
                           const std::array<std::int64_t, mp4_table_count>& positions,
                           std::int64_t media_position, bool long_offsets) {
    media_position_ = media_position;
    long_offsets_ = long_offsets;
    for (std::size_t i = 0; i < mp4_table_count; ++i) {
        if (sizes.needs(static_cast<Mp4TableKind>(i))) tables_[i].open(output, positions[i]);
    }
}

void TrackTables::begin_piece(const TrackMapping& mapping) {
    mapping_ = mapping;
    piece_begins_ = true;
}

std::int64_t TrackTables::scaled(std::int64_t time) const {
    return scale_time(time, mapping_.factor, mapping_.divisor);
}

void TrackTables::add_to(Runs& runs, Mp4TableKind kind, std::uint64_t count, std::uint64_t value) {
    if (count == 0) return;
    if (runs.count > 0 && runs.value != value) end_runs(runs, kind);
    runs.value = value;
    runs.count += count;
}

void TrackTables::end_runs(Runs& runs, Mp4TableKind kind) {
    if (runs.count == 0) return;
    TableOutput& out = table(kind);
    out.count();
    out.put(runs.count, 4);
    out.put(runs.value, 4);
    runs.count = 0;
}

void TrackTables::take(const SampleRun& run) {
    if (mapping_.divisor == 1) {
        take_times(run);
    } else {
        take_one_by_one(run);
    }
    take_chunk(run);
    take_sizes(run);
    take_sync(run);
    take_groups(run);
    sizes_.samples += run.count;
    piece_begins_ = false;
}

void TrackTables::take_times(const SampleRun& run) {
    place(mapping_.start + scaled(run.decode_time), run.count, scaled(run.duration), scaled(run.composition));
}

// A tick here is no whole number of joined ticks, so each time is rounded by itself and no error adds up.
void TrackTables::take_one_by_one(const SampleRun& run) {
    for (std::uint32_t i = 0; i < run.count; ++i) {
        const std::int64_t time = run.decode_time + std::int64_t{run.duration} * i;
        const std::int64_t placed = scaled(time);
        place(mapping_.start + placed, 1, scaled(time + run.duration) - placed,
              scaled(time + run.composition) - placed);
    }
}

// The next sample's time ends this sample's duration, so this waits for it.
void TrackTables::place(std::int64_t time, std::uint32_t count, std::int64_t duration,
                        std::int64_t composition) {
    // Rounding may go a tick beyond the table's range, and a number that wrapped around would be another time
    // altogether.
    composition = std::clamp<std::int64_t>(composition, std::numeric_limits<std::int32_t>::min(),
                                           std::numeric_limits<std::int32_t>::max());
    if (has_last_) add_to(durations_, Mp4TableKind::stts, 1, static_cast<std::uint64_t>(time - last_time_));
    add_to(durations_, Mp4TableKind::stts, count - 1, static_cast<std::uint64_t>(duration));
    last_time_ = time + duration * (count - 1);
    last_duration_ = duration;
    has_last_ = true;
    sizes_.has_compositions = sizes_.has_compositions || composition != 0;
    sizes_.has_negative_compositions = sizes_.has_negative_compositions || composition < 0;
    add_to(compositions_, Mp4TableKind::ctts, count, static_cast<std::uint64_t>(composition) & 0xFFFFFFFFU);
}

void TrackTables::take_chunk(const SampleRun& run) {
    if (run.starts_chunk || piece_begins_) {
        end_chunk();
        const std::int64_t at = mapping_.media_start + mapping_.ranges->target_of(run.offset);
        sizes_.last_chunk = std::max(sizes_.last_chunk, at);
        table(Mp4TableKind::chunks).count();
        table(Mp4TableKind::chunks)
            .put(static_cast<std::uint64_t>(media_position_ + at), long_offsets_ ? 8 : 4);
        ++chunk_;
        chunk_description_ = mapping_.descriptions[run.description];
    }
    chunk_samples_ += run.count;
}

void TrackTables::end_chunk() {
    if (chunk_samples_ == 0) return;
    if (chunk_samples_ != told_samples_ || chunk_description_ != told_description_) {
        TableOutput& out = table(Mp4TableKind::stsc);
        out.count();
        out.put(chunk_, 4);
        out.put(chunk_samples_, 4);
        out.put(chunk_description_, 4);
        told_samples_ = chunk_samples_;
        told_description_ = chunk_description_;
    }
    chunk_samples_ = 0;
}

void TrackTables::take_sizes(const SampleRun& run) {
    if (sizes_.samples == 0) sizes_.size = run.size;
    if (run.size != sizes_.size) sizes_.one_size = false;
    TableOutput& out = table(Mp4TableKind::stsz);
    for (std::uint32_t i = 0; out.is_open() && i < run.count; ++i) out.put(run.size, 4);
}

void TrackTables::take_sync(const SampleRun& run) {
    if (!run.sync) {
        sizes_.all_sync = false;
        return;
    }
    TableOutput& out = table(Mp4TableKind::stss);
    out.count(run.count);
    for (std::uint32_t i = 0; out.is_open() && i < run.count; ++i) out.put(sizes_.samples + i + 1, 4);
}

void TrackTables::take_groups(const SampleRun& run) {
    for (std::size_t i = 0; i < group_types_; ++i) {
        // Types that only later pieces have are unknown to the earlier ones' mappings.
        const GroupMapping* const mapping = i < mapping_.groups.size() ? &mapping_.groups[i] : nullptr;
        const bool grouped = mapping != nullptr && mapping->source >= 0;
        const std::uint32_t index =
            grouped ? mapping->index_of(run.groups[static_cast<std::size_t>(mapping->source)]) : 0;
        add_to(groups_[i], sbgp(i), run.count, index);
    }
}

Outcome<TrackTableSizes> TrackTables::finish() {
    if (has_last_) add_to(durations_, Mp4TableKind::stts, 1, static_cast<std::uint64_t>(last_duration_));
    end_runs(durations_, Mp4TableKind::stts);
    end_runs(compositions_, Mp4TableKind::ctts);
    for (std::size_t i = 0; i < group_types_; ++i) end_runs(groups_[i], sbgp(i));
    end_chunk();
    for (std::size_t i = 0; i < mp4_table_count; ++i) {
        sizes_.entries[i] = tables_[i].entries();
        if (Result result = tables_[i].flush(); !result.ok()) return result;
    }
    sizes_.entries[static_cast<std::size_t>(Mp4TableKind::stsz)] = sizes_.samples;
    return sizes_;
}

}  // namespace vantlow
