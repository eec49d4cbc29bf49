#include "base/mem_file.h"

#include <algorithm>

namespace vantlow {
namespace {

template <class Number>
void write_little_endian(CQoMemFile& file, Number value) {
    std::byte bytes[sizeof(Number)];
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        bytes[i] = static_cast<std::byte>(static_cast<std::uint64_t>(value) >> (8 * i));
    }
    file.write(bytes);
}

}  // namespace

void CQoMemFile::reserve(std::size_t size) {
    bytes_.reserve((size + step_ - 1) / step_ * step_);
}

void CQoMemFile::write(std::span<const std::byte> bytes) {
    const std::size_t needed = bytes_.size() + bytes.size();
    if (needed > bytes_.capacity()) {
        // Memory grows in whole steps, and is at least doubled once the file is large, so that the copying
        // stays linear in all.
        reserve(std::max(needed, bytes_.capacity() * 2));
    }
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void CQoMemFile::write_u8(std::uint8_t value) {
    write_little_endian(*this, value);
}
void CQoMemFile::write_u16(std::uint16_t value) {
    write_little_endian(*this, value);
}
void CQoMemFile::write_u32(std::uint32_t value) {
    write_little_endian(*this, value);
}
void CQoMemFile::write_u64(std::uint64_t value) {
    write_little_endian(*this, value);
}

}  // namespace vantlow
