// The metadata of an FLV file: the script tag "onMetaData".
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "media/amf0.h"
#include "media/flv_tag.h"

namespace vantlow {

/// The facts about the whole that a joined file's metadata holds.
struct FlvTotals {
    double duration = 0;  ///< seconds
    std::int64_t file_size = 0;
    std::uint32_t last_timestamp = 0;           ///< milliseconds
    std::int64_t last_keyframe_position = -1;   ///< of the tag, in the file; -1: there is no keyframe
    std::uint32_t last_keyframe_timestamp = 0;  ///< milliseconds
    std::vector<std::int64_t> keyframe_positions;
    std::vector<std::uint32_t> keyframe_times;
};

/// One metadata tag, which can be changed and written again.
class FlvMetadata {
  public:
    /// Reads a script tag at the offset; none when it is no metadata: not AMF0, another name, or too long to
    /// be looked at.
    static std::optional<FlvMetadata> read(const MediaInput& input, std::int64_t offset, const FlvTag& tag);
    /// The first metadata of a file whose tags begin at flv::file_header; looks at `most_tags` tags.
    static std::optional<FlvMetadata> find(const MediaInput& input, std::int64_t most_tags);

    /// An entry; none when the metadata holds no such number.
    [[nodiscard]] std::optional<double> number(std::u16string_view name) const;
    [[nodiscard]] std::optional<double> duration() const { return number(u"duration"); }  ///< seconds
    [[nodiscard]] bool has_keyframes() const;
    /// How many keyframes the index names; 0 when there is none.
    [[nodiscard]] std::size_t keyframe_count() const;
    /// Sets the entries that exist already; adds none.
    void set_totals(const FlvTotals& totals);
    /// Sets the entries "width" and "height" where they exist already.
    void set_size(double width, double height);
    /// The place of the tag in its file.
    [[nodiscard]] std::int64_t offset() const noexcept { return offset_; }

    /// The whole tag as it was read.
    [[nodiscard]] const std::vector<std::byte>& original() const noexcept { return original_; }
    /// The whole tag as it is now; empty when it does not fit in a tag.
    [[nodiscard]] std::vector<std::byte> encoded() const;
    [[nodiscard]] const CAMF0& body() const noexcept { return body_; }

  private:
    void set_number(std::u16string_view name, double value);

    std::int64_t offset_ = 0;
    std::vector<std::byte> original_;
    CAMF0 body_;
};

}  // namespace vantlow
