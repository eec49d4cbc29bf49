// A byte stream in memory that grows in fixed steps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vantlow {

/// An in-memory file for the program's writers. Its capacity is always a multiple of the growth step, so that
/// writing field by field does not move the bytes each time. Owned and used by one thread.
class CQoMemFile {
  public:
    explicit CQoMemFile(std::size_t growth_step = 1024) : step_(growth_step) {}

    void write(std::span<const std::byte> bytes);
    void write_u8(std::uint8_t value);
    void write_u16(std::uint16_t value);  ///< little-endian, like its wider kin
    void write_u32(std::uint32_t value);
    void write_u64(std::uint64_t value);

    /// Makes room for so many bytes in all, in whole steps: who knows the size spares the moving.
    void reserve(std::size_t size);

    [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return bytes_; }
    [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
    [[nodiscard]] std::size_t capacity() const noexcept { return bytes_.capacity(); }
    void clear() noexcept { bytes_.clear(); }

  private:
    std::vector<std::byte> bytes_;
    std::size_t step_;
};

}  // namespace vantlow
