// A piece of media, open for reading, and which container it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "platform/file.h"

namespace vantlow {

/// One input file. Its size is the one that it had when it was opened. For one thread.
class MediaInput {
  public:
    /// Fails with Code::local_file, the piece named in the message.
    Result open(const std::u16string& path);

    [[nodiscard]] const std::u16string& path() const noexcept { return path_; }
    [[nodiscard]] std::int64_t size() const noexcept { return size_; }
    [[nodiscard]] const File& file() const noexcept { return file_; }

    /// Fills `into` from the offset on; false when the file ends before or cannot be read.
    [[nodiscard]] bool read(std::int64_t offset, std::span<std::byte> into) const noexcept;
    /// The result for a read that failed at this offset.
    [[nodiscard]] Result read_failure(std::int64_t offset) const;
    /// A failure that names the piece and the place. Where the piece could not be read, that is the failure
    /// instead.
    [[nodiscard]] Result damaged(std::int64_t offset, std::string_view what) const;

  private:
    std::u16string path_;
    File file_;
    std::int64_t size_ = 0;
    mutable FileError read_error_;  ///< of the first read that the system failed
};

/// Small reads of one input from a window that moves with them.
class InputWindow {
  public:
    explicit InputWindow(const MediaInput& input, std::size_t size = 4096) : input_(&input), bytes_(size) {}

    /// The bytes at the offset, until the next call; null when the file ends before or cannot be read.
    /// `count` is at most the window's size.
    [[nodiscard]] const std::byte* at(std::int64_t offset, std::size_t count);
    [[nodiscard]] const MediaInput& input() const noexcept { return *input_; }

  private:
    const MediaInput* input_;
    std::vector<std::byte> bytes_;
    std::int64_t start_ = 0;
    std::size_t filled_ = 0;
};

enum class MediaKind { flv, mp4, other };

/// By the first bytes: "FLV", or a box that a file of the ISO base media family (ISO/IEC 14496-12) may begin
/// with.
MediaKind media_kind(const MediaInput& input);

}  // namespace vantlow
