#include "media/media_kind.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace vantlow {

MediaKind media_kind(const MediaInput& input) {
    std::array<char, 8> head{};
    const auto bytes = std::as_writable_bytes(std::span(head));
    if (!input.read(0, bytes.first(3))) return MediaKind::other;
    const std::string_view text(head.data(), head.size());
    if (text.starts_with("FLV")) return MediaKind::flv;
    if (!input.read(0, bytes)) return MediaKind::other;
    static constexpr std::string_view first_boxes[] = {"ftyp", "moov", "mdat", "free", "skip",
                                                       "wide", "styp", "moof", "pnot", "sidx"};
    const bool box =
        std::find(std::begin(first_boxes), std::end(first_boxes), text.substr(4)) != std::end(first_boxes);
    return box ? MediaKind::mp4 : MediaKind::other;
}

}  // namespace vantlow
