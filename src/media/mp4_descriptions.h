// Sample descriptions of joined tracks: codecs and their configurations (ISO/IEC 14496-12, 8.5.2).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "media/mp4_box.h"

namespace vantlow {

/// The codec of a sample entry, precisely enough to tell different codecs apart.
struct Mp4Codec {
    FourCC format = 0;             ///< the entry's type
    std::uint8_t object_type = 0;  ///< of MPEG-4 entries (ISO/IEC 14496-1): AAC, MP3, ...
    /// True when one decoder takes both: the same codec, perhaps with parameters in another place.
    [[nodiscard]] bool is_same(const Mp4Codec& other) const noexcept;
    /// "avc1", "mp4a.40".
    [[nodiscard]] std::string text() const;
};

/// Of a whole sample entry.
Mp4Codec codec_of(const std::vector<std::byte>& entry);

/// The sample descriptions of one joined track.
class DescriptionList {
  public:
    /// Returns the index (from 1) of the entry in the list, and adds it unless there is one like it. Entries
    /// that differ only in their bit rates are alike; the greater rate is kept. Returns 0 when it has another
    /// codec than the first entry.
    std::uint32_t add(const std::vector<std::byte>& entry);
    [[nodiscard]] const std::vector<std::vector<std::byte>>& entries() const noexcept { return entries_; }

  private:
    std::vector<std::vector<std::byte>> entries_;
    std::vector<std::vector<std::byte>> keys_;  ///< the same without rates
};

}  // namespace vantlow
