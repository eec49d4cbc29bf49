#include "media/mp4_samples.h"

#include <algorithm>

namespace vantlow {
namespace {

constexpr std::size_t cursor_buffer = 16 * 1024;

}  // namespace

TableCursor::TableCursor(const MediaInput& input, const Mp4Table& table, std::size_t entry_size)
    : input_(&input), entry_size_(entry_size), offset_(table.offset), left_(table.count) {}

const std::byte* TableCursor::next() {
    if (at_ == filled_) {
        const auto entries = std::min<std::size_t>(left_, cursor_buffer / entry_size_);
        if (entries == 0 || failed_) return nullptr;
        buffer_.resize(entries * entry_size_);
        at_ = 0;
        filled_ = 0;
        if (!input_->read(offset_, buffer_)) {
            failed_ = true;
            return nullptr;
        }
        filled_ = buffer_.size();
        offset_ += static_cast<std::int64_t>(filled_);
        left_ -= static_cast<std::uint32_t>(entries);
    }
    const std::byte* const entry = buffer_.data() + at_;
    at_ += entry_size_;
    return entry;
}

Result walk_samples(const MediaInput& input, const Mp4Piece& piece, SampleSink& sink) {
    std::vector<std::int64_t> ends(piece.tracks.size());
    bool go_on = true;
    Result result = walk_movie_samples(input, piece, sink, ends, go_on);
    if (!result.ok() || !go_on || !piece.is_fragmented) return result;
    return walk_fragment_samples(input, piece, sink, ends);
}

}  // namespace vantlow
