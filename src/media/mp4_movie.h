// The movie box of a joined file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "media/mp4_box.h"
#include "media/mp4_piece.h"
#include "media/mp4_tables.h"
#include "media/mp4_timeline.h"

namespace vantlow {

/// Boxes in the making. Tables that are written later are holes: they count, but take no memory.
class BoxBuilder {
  public:
    struct Hole {
        std::size_t at = 0;  ///< in bytes(): it stands in front of this one
        std::int64_t size = 0;
        std::size_t track = 0;
        Mp4TableKind kind{};
    };

    void begin(std::string_view type);
    void begin_full(std::string_view type, unsigned version, std::uint32_t flags);
    /// Ends the box that was begun last.
    void end();
    void put(std::uint64_t value, std::size_t bytes);
    void copy(const std::byte* bytes, std::size_t count) {
        bytes_.insert(bytes_.end(), bytes, bytes + count);
    }
    void copy(const std::vector<std::byte>& bytes) { copy(bytes.data(), bytes.size()); }
    void leave(std::int64_t size, std::size_t track, Mp4TableKind kind);

    [[nodiscard]] const std::vector<std::byte>& bytes() const noexcept { return bytes_; }
    [[nodiscard]] const std::vector<Hole>& holes() const noexcept { return holes_; }
    /// With the holes.
    [[nodiscard]] std::int64_t size() const noexcept {
        return static_cast<std::int64_t>(bytes_.size()) + holes_size_;
    }
    /// False when a box became larger than its size can say (4 GiB).
    [[nodiscard]] bool fits() const noexcept { return fits_; }

  private:
    struct Open {
        std::size_t at = 0;
        std::int64_t start = 0;
    };
    std::vector<std::byte> bytes_;
    std::vector<Hole> holes_;
    std::vector<Open> open_;
    std::int64_t holes_size_ = 0;
    bool fits_ = true;
};

/// A joined track, all but its samples.
struct JoinedTrackBoxes {
    const Mp4Track* model = nullptr;  ///< the first piece's track that it began with
    std::uint32_t id = 0;
    std::uint32_t timescale = 0;
    std::vector<std::vector<std::byte>> descriptions;
    std::vector<JoinedGroups> groups;
    TrackTimeline timeline;
    TrackTableSizes sizes;
};

/// "ftyp": the brands that the joined file follows.
void put_file_type(BoxBuilder& boxes, bool is_quicktime);
/// "moov", with holes for the tables. Ids of tracks that a model names but that are not in the list are left
/// out of its references.
void put_movie(BoxBuilder& boxes, const Mp4Piece& model, const std::vector<JoinedTrackBoxes>& tracks,
               bool long_offsets);

}  // namespace vantlow
