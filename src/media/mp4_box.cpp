#include "media/mp4_box.h"

#include <string>
#include <utility>

#include "media/big_endian.h"

namespace vantlow {
namespace {

constexpr std::size_t short_header = 8;
constexpr std::size_t long_header = 16;

constexpr std::int64_t most_held = 64 * 1024 * 1024;

}  // namespace

std::string fourcc_text(FourCC code) {
    std::string text;
    for (unsigned shift = 32; shift > 0; shift -= 8) {
        const char c = static_cast<char>(code >> (shift - 8) & 0xFFU);
        text += c >= ' ' && c < 0x7F ? c : '?';
    }
    return text;
}

bool BoxWalker::next(Mp4Box& box) {
    // Up to seven bytes at the end are padding, as QuickTime has it behind user data.
    if (!failure_.ok() || end_ - at_ < std::int64_t{short_header}) return false;
    const MediaInput& input = window_->input();
    const std::byte* header = window_->at(at_, short_header);
    if (header == nullptr) {
        failure_ = input.read_failure(at_);
        return false;
    }
    std::uint64_t size = load_u32(header);
    box.type = load_u32(header + 4);
    box.offset = at_;
    box.body = at_ + std::int64_t{short_header};
    if (size == 1) {
        header = window_->at(at_, long_header);
        size = header == nullptr ? 0 : load_u64(header + short_header);
        box.body = at_ + std::int64_t{long_header};
    } else if (size == 0) {
        size = static_cast<std::uint64_t>(end_ - at_);  // up to the end
    }
    if (size < static_cast<std::uint64_t>(box.body - at_) || size > static_cast<std::uint64_t>(end_ - at_)) {
        failure_ = input.damaged(at_, "the box \"" + fourcc_text(box.type) +
                                          "\" extends beyond its surroundings, or is not a box");
        return false;
    }
    at_ += static_cast<std::int64_t>(size);
    box.end = at_;
    return true;
}

bool find_box(InputWindow& window, const Mp4Box& parent, std::string_view path, Mp4Box& found,
              Result& failure) {
    found = parent;
    while (!path.empty()) {
        const FourCC type = fourcc(path);
        path.remove_prefix(path.size() > 4 ? 5 : path.size());
        BoxWalker walker(window, found);
        bool there = false;
        while (!there && walker.next(found)) there = found.type == type;
        if (!walker.failure().ok()) failure = walker.failure();
        if (!there) return false;
    }
    return true;
}

std::span<const std::byte> body_of(const std::vector<std::byte>& whole) noexcept {
    return std::span(whole).subspan(load_u32(whole.data()) == 1 ? long_header : short_header);
}

Outcome<std::vector<std::byte>> read_range(const MediaInput& input, std::int64_t begin, std::int64_t end,
                                           std::int64_t at_most) {
    if (end - begin > at_most) return input.damaged(begin, "a box that is too large");
    std::vector<std::byte> bytes(static_cast<std::size_t>(end - begin));
    if (!input.read(begin, bytes)) return input.read_failure(begin);
    return bytes;
}

bool BoxReader::load(const Mp4Box& box, Bytes& whole, std::size_t least_body, std::int64_t largest) {
    if (box.body_size() < static_cast<std::int64_t>(least_body))
        return fail(box.offset, "a box that is too short");
    held_ += box.end - box.offset;
    if (held_ > most_held) return fail(box.offset, "too much in the movie box");
    auto bytes = read_range(input, box.offset, box.end, largest);
    if (!bytes) {
        failure = bytes.failure();
        return false;
    }
    whole = *std::move(bytes);
    // A size of 0 means "up to the end of the surroundings", which lies elsewhere where the box is written
    // again.
    if (load_u32(whole.data()) == 0) store_big(whole.data(), whole.size(), 4);
    return true;
}

bool BoxReader::load(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body) {
    Mp4Box box;
    return find(parent, path, box) && load(box, whole, least_body);
}

bool BoxReader::need(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body) {
    if (load(parent, path, whole, least_body)) return true;
    return failure.ok() ? fail(parent.offset, "the box \"" + std::string(path) + "\" is missing") : false;
}

}  // namespace vantlow
