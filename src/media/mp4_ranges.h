// The bytes of a piece that are media, and their places in the joined file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vantlow {

/// Copying inside the system is fastest where source and target have the same place within blocks of this
/// many bytes.
inline constexpr std::int64_t media_alignment = 65536;
/// Alignment pays for ranges of at least this many bytes.
inline constexpr std::int64_t large_media = std::int64_t{32} * 1024 * 1024;

/// A set of byte ranges of one file, kept small: neighbours are joined, and where there are too many the
/// smallest gaps between them become part of them.
class MediaRanges {
  public:
    struct Range {
        std::int64_t begin = 0;
        std::int64_t end = 0;
        std::int64_t target = 0;  ///< where the range stands among all of them, once close() was called
    };

    explicit MediaRanges(std::size_t most = 65536) : most_(most) {}

    /// In any order; ranges may overlap.
    void add(std::int64_t begin, std::int64_t end);
    /// Ends the adding: sorts and joins the ranges, and lays them out one behind the other.
    void close();
    /// Lays them out again for a place in the joined media: large ones so that they can be copied fastest,
    /// with up to media_alignment bytes of nothing in front.
    void place(std::int64_t media_start);
    [[nodiscard]] const std::vector<Range>& ranges() const noexcept { return ranges_; }
    /// Bytes of all ranges.
    [[nodiscard]] std::int64_t size() const noexcept { return size_; }
    /// The place of a byte of the file among the ranges. A byte outside of them (of an empty chunk) counts as
    /// the end of the range before it.
    [[nodiscard]] std::int64_t target_of(std::int64_t offset) const;

  private:
    void join(std::int64_t gap);

    std::size_t most_;
    std::int64_t gap_ = 0;  ///< bytes between two ranges that are taken along
    std::int64_t size_ = 0;
    std::vector<Range> ranges_;
    mutable std::size_t last_ = 0;  ///< the range that was asked for last
};

}  // namespace vantlow
