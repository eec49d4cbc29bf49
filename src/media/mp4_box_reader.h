// Reading an MP4 file box by box, with the first failure kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "media/mp4_box.h"

namespace vantlow {

/// For one input, which outlives it. Each operation returns false after it has set the failure.
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
    /// Takes a whole box into memory, as it can be written again. Boxes that are held are small in all films
    /// that make sense, and few: together they have 64 MiB at most.
    bool load(const Mp4Box& box, Bytes& whole, std::size_t least_body,
              std::int64_t largest = largest_small_box);
    /// The same for a box that is looked for; false, without a failure, also where it is absent.
    bool load(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body = 0);
    /// The same for one that must be there.
    bool need(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body);

    const MediaInput& input;
    InputWindow window;
    Result failure;

  private:
    std::int64_t held_ = 0;  ///< bytes of all boxes that were loaded
};

}  // namespace vantlow
