// The file that a join writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/result.h"
#include "platform/file.h"

namespace vantlow {

/// A file that is written as `name + ".joining"`. It takes its final name when it is whole, and is removed
/// otherwise. One thread.
class MediaOutput {
  public:
    MediaOutput() = default;
    /// Removes what was not committed.
    ~MediaOutput();
    MediaOutput(const MediaOutput&) = delete;
    MediaOutput& operator=(const MediaOutput&) = delete;

    /// The name of a file until it is whole.
    static std::u16string working_name(const std::u16string& name) { return name + u".joining"; }

    Result open(const std::u16string& name);
    /// Appends.
    Result write(std::span<const std::byte> bytes);
    /// Appends a range of another file, inside the system where it can do that. The range must be there.
    Result copy(const File& from, std::int64_t offset, std::int64_t count);
    /// Overwrites bytes that were written before.
    Result write_at(std::int64_t offset, std::span<const std::byte> bytes);
    /// Moves everything from the offset on by so many bytes, towards the end or (negative) the beginning,
    /// and the end of the file with it.
    Result shift(std::int64_t offset, std::int64_t by);
    /// The place at which the next byte is appended: the size so far.
    [[nodiscard]] std::int64_t position() const noexcept { return position_; }
    /// Leaves a gap that write_at fills later.
    void skip(std::int64_t count) noexcept { position_ += count; }
    /// Forces the file onto the disk and gives it its name.
    Result commit();

  private:
    [[nodiscard]] Result failure(const FileError& error) const;

    std::u16string name_;
    std::u16string working_name_;
    File file_;
    std::int64_t position_ = 0;
};

}  // namespace vantlow
