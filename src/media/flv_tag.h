// The tags that an FLV file is made of (Adobe Flash Video File Format, version 10.1, annex E).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "media/media_input.h"

namespace vantlow {

namespace flv {
inline constexpr std::size_t file_header = 13;  ///< with the back-pointer of the tag that is not there
inline constexpr std::size_t tag_header = 11;
inline constexpr std::size_t back_pointer = 4;
inline constexpr std::uint8_t audio = 8;
inline constexpr std::uint8_t video = 9;
inline constexpr std::uint8_t script = 18;
}  // namespace flv

/// The head of a tag.
struct FlvTag {
    std::uint8_t type = 0;
    std::uint32_t data_size = 0;  ///< 24 bits
    std::uint32_t timestamp = 0;  ///< milliseconds

    /// With the head and the back-pointer behind.
    [[nodiscard]] std::int64_t whole_size() const noexcept {
        return static_cast<std::int64_t>(data_size + flv::tag_header + flv::back_pointer);
    }
    [[nodiscard]] bool is_media() const noexcept { return type == flv::audio || type == flv::video; }
};

/// From flv::tag_header bytes.
FlvTag read_flv_tag(const std::byte* header) noexcept;
/// Sets the time of a tag's head: the low 24 bits, then the high 8.
void set_flv_timestamp(std::byte* header, std::uint32_t timestamp) noexcept;

/// True when the first bytes of a video tag's data say that it can be decoded by itself. A codec's
/// configuration alone is no picture.
bool is_flv_keyframe(std::span<const std::byte> data) noexcept;
/// The number of bytes that is_flv_keyframe needs.
inline constexpr std::size_t flv_keyframe_bytes = 2;

/// The next whole tag of an input at the offset, head only; none where it would not fit before the end.
std::optional<FlvTag> next_flv_tag(InputWindow& window, std::int64_t offset);

}  // namespace vantlow
