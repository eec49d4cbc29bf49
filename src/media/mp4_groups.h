// Sample groups of joined tracks (ISO/IEC 14496-12, 8.9).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "media/mp4_piece.h"

namespace vantlow {

/// Descriptions of one type of groups in a joined track.
struct JoinedGroups {
    FourCC type = 0;
    std::uint32_t parameter = 0;
    std::vector<std::vector<std::byte>> entries;
};

/// The mapping of a piece's groups of one type to the joined track's.
struct GroupMapping {
    int source = -1;                     ///< which of the piece's types; -1: the piece has none of this one
    std::vector<std::uint32_t> indices;  ///< joined index of the piece's; both from 1, 0 stays 0
    [[nodiscard]] std::uint32_t index_of(std::uint32_t index) const noexcept {
        return index < indices.size() ? indices[index] : 0;
    }
};

/// The groups of one joined track.
class GroupList {
  public:
    /// Adds a piece's descriptions, mapping each that is like an earlier one to that one. Returns one mapping
    /// for each joined type that is known so far.
    std::vector<GroupMapping> add(const std::vector<Mp4Groups>& groups);
    [[nodiscard]] const std::vector<JoinedGroups>& groups() const noexcept { return groups_; }

  private:
    std::vector<JoinedGroups> groups_;
};

}  // namespace vantlow
