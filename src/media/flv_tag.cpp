#include "media/flv_tag.h"

#include "media/big_endian.h"

namespace vantlow {

FlvTag read_flv_tag(const std::byte* header) noexcept {
    FlvTag tag;
    tag.type = std::to_integer<std::uint8_t>(header[0]);
    tag.data_size = load_u24(header + 1);
    tag.timestamp = load_u24(header + 4) | std::to_integer<std::uint32_t>(header[7]) << 24U;
    return tag;
}

void set_flv_timestamp(std::byte* header, std::uint32_t timestamp) noexcept {
    store_big(header + 4, timestamp, 3);
    header[7] = static_cast<std::byte>(timestamp >> 24U);
}

bool is_flv_keyframe(std::span<const std::byte> data) noexcept {
    if (data.empty()) return false;
    const auto first = std::to_integer<unsigned>(data[0]);
    const bool extended = (first & 0x80U) != 0;  // codecs by four letters
    const unsigned frame_type = first >> 4U & 7U;
    const unsigned low = first & 0x0FU;
    if (frame_type != 1) return false;
    if (extended) return low == 1 || low == 3;  // coded frames, with and without composition time
    const bool has_packet_type =
        low == 7 || low == 12 || low == 13;  // AVC, and as others number HEVC and AV1
    return !has_packet_type || (data.size() > 1 && data[1] == std::byte{1});
}

std::optional<FlvTag> next_flv_tag(InputWindow& window, std::int64_t offset) {
    const std::byte* const header = window.at(offset, flv::tag_header);
    if (header == nullptr) return std::nullopt;
    const FlvTag tag = read_flv_tag(header);
    if (tag.whole_size() > window.input().size() - offset) return std::nullopt;
    return tag;
}

}  // namespace vantlow
