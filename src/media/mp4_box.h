// Boxes, of which MP4 files consist (ISO/IEC 14496-12, 4.2), and reading a file box by box.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "media/media_input.h"

namespace vantlow {

/// A four-character code.
using FourCC = std::uint32_t;

constexpr FourCC fourcc(std::string_view text) noexcept {
    FourCC code = 0;
    for (const char c : text.substr(0, 4)) code = code << 8U | static_cast<unsigned char>(c);
    return code;
}
/// As text, "?" for what a person cannot read.
std::string fourcc_text(FourCC code);

/// A box in an input, by its places there.
struct Mp4Box {
    FourCC type = 0;
    std::int64_t offset = 0;  ///< of its header
    std::int64_t body = 0;    ///< behind the header
    std::int64_t end = 0;
    [[nodiscard]] std::int64_t body_size() const noexcept { return end - body; }
};

/// Goes through the boxes of a range, one after the other.
class BoxWalker {
  public:
    /// The window must outlive the walker.
    BoxWalker(InputWindow& window, std::int64_t begin, std::int64_t end)
        : window_(&window), at_(begin), end_(end) {}
    BoxWalker(InputWindow& window, const Mp4Box& parent) : BoxWalker(window, parent.body, parent.end) {}

    /// The next box; false at the end and where the next bytes are no box that fits.
    bool next(Mp4Box& box);
    /// Why next() gave no box; ok at the end.
    [[nodiscard]] const Result& failure() const noexcept { return failure_; }

  private:
    InputWindow* window_;
    std::int64_t at_;
    std::int64_t end_;
    Result failure_;
};

/// The first box of that type in a parent, through a path of types ("mdia/mdhd"). False when there is none;
/// `failure` is set where boxes are damaged.
bool find_box(InputWindow& window, const Mp4Box& parent, std::string_view path, Mp4Box& found,
              Result& failure);

/// The body of a whole box in memory, behind a header of either length.
std::span<const std::byte> body_of(const std::vector<std::byte>& whole) noexcept;

/// All bytes of a range; a failure where it is longer than `at_most` or cannot be read.
Outcome<std::vector<std::byte>> read_range(const MediaInput& input, std::int64_t begin, std::int64_t end,
                                           std::int64_t at_most);

/// Reads boxes of one input, which outlives it. Each operation returns false after it has set the failure.
class BoxReader {
  public:
    using Bytes = std::vector<std::byte>;
    static constexpr std::int64_t largest_small_box = std::int64_t{1024} * 1024;

    explicit BoxReader(const MediaInput& read_from) : input(read_from), window(read_from) {}

    bool fail(std::int64_t offset, std::string_view what) {
        failure = input.damaged(offset, what);
        return false;
    }
    /// False, without a failure, also where there is no such box.
    bool find(const Mp4Box& parent, std::string_view path, Mp4Box& found) {
        return find_box(window, parent, path, found, failure);
    }
    /// Loads a whole box into memory, in a form that can be written again. Such boxes are few and small in
    /// all sensible films; together they may have at most 64 MiB.
    bool load(const Mp4Box& box, Bytes& whole, std::size_t least_body,
              std::int64_t largest = largest_small_box);
    /// Loads a box that may be absent; then it returns false without a failure.
    bool load(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body = 0);
    /// Loads a box that must exist.
    bool need(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body);

    const MediaInput& input;
    InputWindow window;
    Result failure;

  private:
    std::int64_t held_ = 0;  ///< bytes of all boxes that were loaded
};

}  // namespace vantlow
