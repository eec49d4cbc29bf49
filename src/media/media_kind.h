// What kind of media a file is.
#pragma once

#include "media/media_input.h"

namespace vantlow {

enum class MediaKind { flv, mp4, other };

/// By the first bytes: "FLV", or a box that a file of the ISO base media family (ISO/IEC 14496-12) may begin
/// with.
MediaKind media_kind(const MediaInput& input);

}  // namespace vantlow
