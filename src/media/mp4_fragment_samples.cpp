// Samples that movie fragments describe (ISO/IEC 14496-12, 8.8).
#include <algorithm>
#include <optional>

#include "media/big_endian.h"
#include "media/mp4_samples.h"

namespace vantlow {
namespace {

// Flags of a track fragment's header.
constexpr std::uint32_t has_base_offset = 0x000001;
constexpr std::uint32_t has_description = 0x000002;
constexpr std::uint32_t has_default_duration = 0x000008;
constexpr std::uint32_t has_default_size = 0x000010;
constexpr std::uint32_t has_default_flags = 0x000020;
constexpr std::uint32_t base_is_fragment = 0x020000;
// Flags of a run.
constexpr std::uint32_t has_data_offset = 0x000001;
constexpr std::uint32_t has_first_flags = 0x000004;
constexpr std::uint32_t has_duration = 0x000100;
constexpr std::uint32_t has_size = 0x000200;
constexpr std::uint32_t has_flags = 0x000400;
constexpr std::uint32_t has_composition = 0x000800;
// Of a sample's flags.
constexpr std::uint32_t is_no_sync = 0x010000;

constexpr std::string_view too_long = "the track is impossibly long";

class FragmentSamples {
  public:
    FragmentSamples(const MediaInput& input, const Mp4Piece& piece, SampleSink& sink,
                    std::vector<std::int64_t>& ends)
        : input_(input),
          piece_(piece),
          sink_(sink),
          ends_(ends),
          zeros_(ends.size()),
          begun_(ends.size()),
          window_(input) {}

    Result walk();

  private:
    struct Fragment {
        std::size_t track = 0;
        Mp4FragmentDefaults defaults;
        std::int64_t base = 0;  // of the runs' offsets
    };
    struct Run {
        std::uint32_t flags = 0;
        std::uint32_t first_flags = 0;
        bool is_signed = false;
        Mp4Table table;
        std::size_t entry_size = 0;
    };

    // Each step returns false when the walk is over; failure_ says whether that is a failure.
    bool fail(std::int64_t offset, std::string_view what) {
        failure_ = input_.damaged(offset, what);
        return false;
    }
    bool walk_fragment(const Mp4Box& moof);
    bool walk_track(const Mp4Box& moof, const Mp4Box& traf);
    bool read_header(const Mp4Box& moof, const Mp4Box& traf, std::optional<Fragment>& fragment);
    bool read_time(const Mp4Box& traf, const Fragment& fragment);
    bool read_run(const Mp4Box& box, const Fragment& fragment, Run& run);
    bool walk_run(const Mp4Box& box, const Fragment& fragment, const Run& run);
    bool take(const Fragment& fragment, const Mp4Box& box, SampleRun& samples);

    const MediaInput& input_;
    const Mp4Piece& piece_;
    SampleSink& sink_;
    std::vector<std::int64_t>& ends_;
    std::vector<std::optional<std::int64_t>>
        zeros_;                // the time, as fragments tell it, of a track's first sample
    std::vector<bool> begun_;  // a fragment had a sample of that track
    InputWindow window_;
    std::int64_t data_end_ = 0;  // behind the last run's bytes
    Result failure_;
};

bool FragmentSamples::read_header(const Mp4Box& moof, const Mp4Box& traf, std::optional<Fragment>& fragment) {
    Mp4Box box;
    if (!find_box(window_, traf, "tfhd", box, failure_) || box.body_size() < 8) {
        return failure_.ok() ? fail(traf.offset, "a track fragment without header") : false;
    }
    const auto length = static_cast<std::size_t>(std::min<std::int64_t>(box.body_size(), 40));
    const std::byte* at = window_.at(box.body, length);
    if (at == nullptr) return fail(box.offset, "a header that cannot be read");
    const std::byte* const end = at + length;
    const std::uint32_t flags = load_u24(at + 1);
    const std::uint32_t id = load_u32(at + 4);
    at += 8;
    const auto found = std::find_if(piece_.tracks.begin(), piece_.tracks.end(),
                                    [id](const Mp4Track& track) { return track.id == id; });
    if (found == piece_.tracks.end()) return true;  // a hint track's
    Fragment result;
    result.track = static_cast<std::size_t>(found - piece_.tracks.begin());
    result.defaults = found->fragment;
    result.base = (flags & base_is_fragment) != 0 ? moof.offset : data_end_;
    const auto read = [&](std::uint32_t flag, std::size_t size, auto& value) {
        if ((flags & flag) == 0 || static_cast<std::size_t>(end - at) < size) return;
        value = static_cast<std::remove_reference_t<decltype(value)>>(load_big(at, size));
        at += size;
    };
    read(has_base_offset, 8, result.base);
    read(has_description, 4, result.defaults.description);
    read(has_default_duration, 4, result.defaults.duration);
    read(has_default_size, 4, result.defaults.size);
    read(has_default_flags, 4, result.defaults.flags);
    if (result.defaults.description == 0 || result.defaults.description > found->descriptions.size()) {
        return fail(box.offset, "samples whose description is missing");
    }
    if (result.base < 0 || result.base > input_.size())
        return fail(box.offset, "samples lie beyond the end of the file");
    fragment = result;
    return true;
}

// Fragments state when they begin: a gap stays as it is, an overlap is removed.
bool FragmentSamples::read_time(const Mp4Box& traf, const Fragment& fragment) {
    Mp4Box box;
    auto& zero = zeros_[fragment.track];
    std::int64_t& next = ends_[fragment.track];
    if (!find_box(window_, traf, "tfdt", box, failure_)) {
        if (!zero) zero = 0;
        return failure_.ok();
    }
    const std::byte* const body = box.body_size() < 8 ? nullptr : window_.at(box.body, 8);
    const bool is_long = body != nullptr && body[0] == std::byte{1};
    const std::byte* const time = is_long && box.body_size() >= 12 ? window_.at(box.body + 4, 8) : body;
    if (time == nullptr || (is_long && box.body_size() < 12))
        return fail(box.offset, "a box that is too short");
    const std::uint64_t told = is_long ? load_u64(time) : load_u32(time + 4);
    if (told > static_cast<std::uint64_t>(longest_media_time)) return fail(box.offset, "an impossible time");
    const auto start = static_cast<std::int64_t>(told);
    // Some writers begin with a fragment without samples of a track; it says nothing about the first sample.
    if (!zero || !begun_[fragment.track]) {
        zero = start - next;
        sink_.begins_at(fragment.track, *zero);
        return true;
    }
    const std::int64_t gap = start - *zero - next;
    if (gap > 0 && gap <= longest_table_time) next += gap;
    return true;
}

bool FragmentSamples::read_run(const Mp4Box& box, const Fragment& fragment, Run& run) {
    const auto length = static_cast<std::size_t>(std::min<std::int64_t>(box.body_size(), 16));
    const std::byte* at = length < 8 ? nullptr : window_.at(box.body, length);
    if (at == nullptr) return fail(box.offset, "a run that is too short");
    const std::byte* const begin = at;
    run.is_signed = at[0] != std::byte{0};
    run.flags = load_u24(at + 1);
    run.table.count = load_u32(at + 4);
    at += 8;
    const std::size_t optional =
        ((run.flags & has_data_offset) != 0 ? 4U : 0U) + ((run.flags & has_first_flags) != 0 ? 4U : 0U);
    if (length < 8 + optional) return fail(box.offset, "a run that is too short");
    if ((run.flags & has_data_offset) != 0) {
        data_end_ = fragment.base + static_cast<std::int32_t>(load_u32(at));
        at += 4;
    }
    if ((run.flags & has_first_flags) != 0) {
        run.first_flags = load_u32(at);
        at += 4;
    }
    for (const std::uint32_t flag : {has_duration, has_size, has_flags, has_composition}) {
        if ((run.flags & flag) != 0) run.entry_size += 4;
    }
    run.table.offset = box.body + (at - begin);
    if (run.entry_size > 0 &&
        run.table.count > static_cast<std::uint64_t>(box.end - run.table.offset) / run.entry_size) {
        return fail(box.offset, "a run that is shorter than it says");
    }
    return true;
}

bool FragmentSamples::take(const Fragment& fragment, const Mp4Box& box, SampleRun& samples) {
    const std::uint64_t bytes = std::uint64_t{samples.size} * samples.count;
    std::int64_t& next = ends_[fragment.track];
    if (data_end_ < 0 || data_end_ > input_.size() ||
        bytes > static_cast<std::uint64_t>(input_.size() - data_end_)) {
        return fail(box.offset, "samples lie beyond the end of the file");
    }
    samples.offset = data_end_;
    samples.decode_time = next;
    // Writers that do not know how long a fragment's last sample lasts write 0; times rise all the same.
    samples.duration = std::max(samples.duration, 1U);
    data_end_ += static_cast<std::int64_t>(bytes);
    const std::uint64_t length = std::uint64_t{samples.duration} * samples.count;
    if (length > static_cast<std::uint64_t>(longest_media_time)) return fail(box.offset, too_long);
    next += static_cast<std::int64_t>(length);
    if (next > longest_media_time) return fail(box.offset, too_long);
    begun_[fragment.track] = true;
    const bool go_on = sink_.take(fragment.track, samples);
    samples.starts_chunk = false;
    return go_on;
}

bool FragmentSamples::walk_run(const Mp4Box& box, const Fragment& fragment, const Run& run) {
    SampleRun samples;
    samples.description = fragment.defaults.description - 1;
    samples.duration = fragment.defaults.duration;
    samples.size = fragment.defaults.size;
    samples.sync = (fragment.defaults.flags & is_no_sync) == 0;
    samples.starts_chunk = true;
    const std::uint32_t count = run.table.count;
    std::uint32_t taken = 0;
    if (run.entry_size == 0) {
        if ((run.flags & has_first_flags) != 0 && count > 0) {
            SampleRun first = samples;
            first.sync = (run.first_flags & is_no_sync) == 0;
            first.count = taken = 1;
            if (!take(fragment, box, first)) return false;
            samples.starts_chunk = false;
        }
        samples.count = count - taken;
        return samples.count == 0 || take(fragment, box, samples);
    }
    TableCursor cursor(input_, run.table, run.entry_size);
    samples.count = 1;
    for (; taken < count; ++taken) {
        const std::byte* entry = cursor.next();
        if (entry == nullptr) return fail(box.offset, "a run that cannot be read");
        const auto field = [&entry] { return load_u32((entry += 4) - 4); };
        if ((run.flags & has_duration) != 0) samples.duration = field();
        if ((run.flags & has_size) != 0) samples.size = field();
        std::uint32_t flags = fragment.defaults.flags;
        if ((run.flags & has_flags) != 0) flags = field();
        if ((run.flags & has_first_flags) != 0 && taken == 0) flags = run.first_flags;
        samples.sync = (flags & is_no_sync) == 0;
        if ((run.flags & has_composition) != 0) {
            const std::uint32_t composition = field();
            samples.composition =
                static_cast<std::int32_t>(run.is_signed ? composition : std::min(composition, 0x7FFFFFFFU));
        }
        if (!take(fragment, box, samples)) return false;
    }
    return true;
}

bool FragmentSamples::walk_track(const Mp4Box& moof, const Mp4Box& traf) {
    std::optional<Fragment> fragment;
    if (!read_header(moof, traf, fragment)) return false;
    if (!fragment) return true;
    if (!read_time(traf, *fragment)) return false;
    data_end_ = fragment->base;
    BoxWalker walker(window_, traf);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type != fourcc("trun")) continue;
        Run run;
        if (!read_run(box, *fragment, run) || !walk_run(box, *fragment, run)) return false;
    }
    failure_ = walker.failure();
    return failure_.ok();
}

bool FragmentSamples::walk_fragment(const Mp4Box& moof) {
    // Without a statement of its own the first track's data is counted from the fragment, and the others'
    // data follows.
    data_end_ = moof.offset;
    BoxWalker walker(window_, moof);
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type == fourcc("traf") && !walk_track(moof, box)) return false;
    }
    failure_ = walker.failure();
    return failure_.ok();
}

Result FragmentSamples::walk() {
    BoxWalker walker(window_, 0, input_.size());
    Mp4Box box;
    while (walker.next(box)) {
        if (box.type == fourcc("moof") && !walk_fragment(box)) return failure_;
    }
    return walker.failure();
}

}  // namespace

Result walk_fragment_samples(const MediaInput& input, const Mp4Piece& piece, SampleSink& sink,
                             std::vector<std::int64_t>& ends) {
    return FragmentSamples(input, piece, sink, ends).walk();
}

}  // namespace vantlow
