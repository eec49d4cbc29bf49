// The picture size that a film's metadata states, which players go by before they see a picture.
#pragma once

#include <cstdint>
#include <string>

#include "base/result.h"

namespace vantlow {

struct VideoSize {
    std::uint32_t width = 0;  ///< pixels
    std::uint32_t height = 0;
    bool operator==(const VideoSize&) const = default;
};
inline constexpr std::uint32_t largest_video_edge = 65535;

/// The size in the metadata of an FLV file. Fails where the file is none, or its metadata has no size.
Outcome<VideoSize> read_video_size(const std::u16string& path);

/// Corrects it in place: both edges from 1 to largest_video_edge. Fails as reading does, and leaves the file
/// as it was then.
Result write_video_size(const std::u16string& path, VideoSize size);

}  // namespace vantlow
