#include "media/joins.h"

#include <algorithm>
#include <limits>

#include "base/buffer.h"
#include "media/flv_metadata.h"
#include "media/flv_tag.h"
#include "media/media_input.h"

namespace vantlow {
namespace {

// The buffer fits the processor's caches, so that the heads are changed before the bytes have left them.
constexpr std::size_t buffer_size = 512 * 1024;
// Metadata stands in front, so the count of keyframes is looked for no further than this.
constexpr std::int64_t tags_before_metadata = 8;
// More keyframes do not fit in the longest tag.
constexpr std::size_t most_keyframes = 1'000'000;

class FlvJoiner {
  public:
    FlvJoiner(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
              CombineOutcome& outcome)
        : pieces_(pieces), control_(control), output_(output), outcome_(outcome) {
        buffer_.resize(buffer_size);
    }

    Result run();

  private:
    Result write_head();
    Result reserve_metadata();
    Result join_piece(const MediaInput& input);
    Result take_tags(const MediaInput& input, std::int64_t offset, std::span<std::byte> bytes,
                     std::size_t& taken);
    Result take_large_tag(const MediaInput& input, std::int64_t offset, const FlvTag& tag,
                          std::span<std::byte> bytes);
    void take_media(FlvTag tag, std::span<std::byte> bytes, std::int64_t position);
    void take_script(const MediaInput& input, std::int64_t offset, const FlvTag& tag);
    Result rewrite_metadata();
    void note(const MediaInput& input, std::int64_t offset, const std::string& text) {
        outcome_.notes.push_back(input.damaged(offset, text).message());
    }

    const std::vector<std::u16string>& pieces_;
    CombineControl& control_;
    MediaOutput& output_;
    CombineOutcome& outcome_;
    PageBuffer buffer_;
    std::optional<FlvMetadata> metadata_;
    bool index_ = false;         // the keyframes are collected
    std::int64_t reserved_ = 0;  // bytes of the metadata tag in the output
    double base_ = 0;            // where the piece begins, milliseconds
    double piece_duration_ = 0;  // as it declares it, seconds
    FlvTotals totals_;
};

Result FlvJoiner::write_head() {
    MediaInput first;
    if (Result result = first.open(pieces_.front()); !result.ok()) return result;
    const auto head = buffer_.bytes().first(flv::file_header);
    if (!first.read(0, head)) return first.damaged(0, "shorter than the head of an FLV file");
    if (Result result = output_.write(head); !result.ok()) return result;
    control_.wrote(static_cast<std::int64_t>(head.size()));
    metadata_ = FlvMetadata::find(first, std::numeric_limits<std::int64_t>::max());
    return metadata_ ? reserve_metadata() : Result{};
}

// Writes the metadata as large as the final one is going to be, as far as that is known now: its index will
// have as many keyframes as those of all pieces together.
Result FlvJoiner::reserve_metadata() {
    index_ = metadata_->has_keyframes();
    if (index_) {
        FlvTotals expected;
        std::size_t count = 0;
        for (const std::u16string& path : pieces_) {
            MediaInput piece;
            if (!piece.open(path).ok()) continue;
            if (const auto own = FlvMetadata::find(piece, tags_before_metadata))
                count += own->keyframe_count();
        }
        count = std::min(count, most_keyframes);
        expected.keyframe_positions.resize(count);
        expected.keyframe_times.resize(count);
        metadata_->set_totals(expected);
    }
    std::vector<std::byte> tag = metadata_->encoded();
    if (tag.empty()) tag = metadata_->original();
    reserved_ = static_cast<std::int64_t>(tag.size());
    control_.wrote(reserved_);
    return output_.write(tag);
}

Result FlvJoiner::join_piece(const MediaInput& input) {
    piece_duration_ = 0;
    std::int64_t offset = flv::file_header;
    while (!control_.is_cancelled() && offset < input.size()) {
        const auto left = static_cast<std::uint64_t>(input.size() - offset);
        const auto bytes =
            buffer_.bytes().first(static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer_size)));
        if (!input.read(offset, bytes)) {
            ++outcome_.skipped;
            outcome_.notes.push_back(input.read_failure(offset).message() + ": what comes before was taken");
            break;
        }
        std::size_t taken = 0;
        if (Result result = take_tags(input, offset, bytes, taken); !result.ok()) return result;
        if (taken == 0) {
            note(input, offset, "ends in the middle of a tag; the whole tags before it were used");
            break;
        }
        offset += static_cast<std::int64_t>(taken);
    }
    base_ += piece_duration_ * 1000.0;
    return {};
}

// Takes the whole tags at the beginning of `bytes`, which were read at the offset; none where the first tag
// goes beyond the end of the piece.
Result FlvJoiner::take_tags(const MediaInput& input, std::int64_t offset, std::span<std::byte> bytes,
                            std::size_t& taken) {
    std::size_t kept_from = 0;  // from here on to what is taken all is written
    const auto write_kept = [&] { return output_.write(bytes.subspan(kept_from, taken - kept_from)); };
    while (!control_.is_cancelled() && bytes.size() - taken >= flv::tag_header) {
        const FlvTag tag = read_flv_tag(&bytes[taken]);
        const std::int64_t at = offset + static_cast<std::int64_t>(taken);
        if (tag.whole_size() > input.size() - at) break;
        const auto size = static_cast<std::size_t>(tag.whole_size());
        if (size > bytes.size() - taken) {
            if (taken > 0) break;
            taken = size;
            return take_large_tag(input, at, tag, bytes);
        }
        if (tag.is_media()) {
            take_media(tag, bytes.subspan(taken, size),
                       output_.position() + static_cast<std::int64_t>(taken - kept_from));
            taken += size;
            continue;
        }
        if (Result result = write_kept(); !result.ok()) return result;
        if (tag.type == flv::script) take_script(input, at, tag);
        taken += size;
        kept_from = taken;
    }
    return write_kept();
}

// Takes a tag that is longer than the buffer, which holds its beginning.
Result FlvJoiner::take_large_tag(const MediaInput& input, std::int64_t offset, const FlvTag& tag,
                                 std::span<std::byte> bytes) {
    if (tag.type == flv::script) take_script(input, offset, tag);
    if (!tag.is_media()) return {};
    take_media(tag, bytes, output_.position());
    if (Result result = output_.write(bytes); !result.ok()) return result;
    const auto there = static_cast<std::int64_t>(bytes.size());
    return output_.copy(input.file(), offset + there, tag.whole_size() - there);
}

// Moves a tag in time. `bytes` are the tag or its beginning, `position` is its place in the output.
void FlvJoiner::take_media(FlvTag tag, std::span<std::byte> bytes, std::int64_t position) {
    // Times wrap after 49 days, as in any FLV file.
    tag.timestamp += static_cast<std::uint32_t>(static_cast<std::uint64_t>(base_));
    set_flv_timestamp(bytes.data(), tag.timestamp);
    totals_.last_timestamp = tag.timestamp;
    const auto data =
        bytes.subspan(flv::tag_header, std::min<std::size_t>(tag.data_size, flv_keyframe_bytes));
    if (tag.type == flv::video && is_flv_keyframe(data)) {
        totals_.last_keyframe_position = position;
        totals_.last_keyframe_timestamp = tag.timestamp;
        if (index_ && totals_.keyframe_times.size() < most_keyframes) {
            totals_.keyframe_positions.push_back(position);
            totals_.keyframe_times.push_back(tag.timestamp);
        }
    }
    control_.wrote(tag.whole_size());
}

void FlvJoiner::take_script(const MediaInput& input, std::int64_t offset, const FlvTag& tag) {
    constexpr double longest = 1e9;  // seconds: a wrong duration must not spoil the times of all later pieces
    const auto metadata = FlvMetadata::read(input, offset, tag);
    const auto duration = metadata ? metadata->duration() : std::nullopt;
    if (duration && *duration > 0 && *duration < longest) piece_duration_ += *duration;
}

Result FlvJoiner::rewrite_metadata() {
    if (!metadata_) return {};
    totals_.duration = base_ / 1000.0;
    totals_.file_size = output_.position();
    metadata_->set_totals(totals_);
    std::vector<std::byte> tag = metadata_->encoded();
    if (tag.empty()) {
        outcome_.notes.emplace_back(
            "The index of keyframes became too long for an FLV file and was left out.");
        totals_.keyframe_positions.clear();
        totals_.keyframe_times.clear();
        metadata_->set_totals(totals_);
        tag = metadata_->encoded();
    }
    const std::int64_t grown = static_cast<std::int64_t>(tag.size()) - reserved_;
    if (grown != 0) {
        const auto behind = static_cast<std::int64_t>(flv::file_header) + reserved_;
        if (Result result = output_.shift(behind, grown); !result.ok()) return result;
        for (std::int64_t& position : totals_.keyframe_positions) position += grown;
        if (totals_.last_keyframe_position >= 0) totals_.last_keyframe_position += grown;
        totals_.file_size = output_.position();
        metadata_->set_totals(totals_);
        tag = metadata_->encoded();
    }
    return output_.write_at(flv::file_header, tag);
}

Result FlvJoiner::run() {
    if (Result result = write_head(); !result.ok()) return result;
    for (const std::u16string& path : pieces_) {
        MediaInput input;
        if (Result result = input.open(path); !result.ok()) {
            ++outcome_.skipped;
            outcome_.notes.push_back(result.message() + " (skipped)");
            continue;
        }
        if (input.size() < static_cast<std::int64_t>(flv::file_header)) {
            note(input, 0, "shorter than the head of an FLV file; it was skipped");
            continue;
        }
        if (media_kind(input) != MediaKind::flv)
            return input.damaged(0, "this piece is not an FLV file like the first one");
        if (Result result = join_piece(input); !result.ok()) return result;
        if (control_.is_cancelled()) return Code::stopped;
    }
    if (Result result = rewrite_metadata(); !result.ok()) return result;
    // Pieces that say how long they are decide, as in the joined metadata.
    outcome_.seconds = (base_ > 0 ? base_ : static_cast<double>(totals_.last_timestamp)) / 1000.0;
    return {};
}

}  // namespace

Result join_flv(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
                CombineOutcome& outcome) {
    return FlvJoiner(pieces, control, output, outcome).run();
}

}  // namespace vantlow
