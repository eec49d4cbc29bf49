// Memory for bulk data.
#pragma once

#include <cstddef>
#include <new>
#include <span>

namespace vantlow {

/// A block of bytes that begins at a page: the system copies into and out of such blocks fastest. Its bytes
/// are not set to anything. Owned and used by one thread.
class PageBuffer {
  public:
    PageBuffer() = default;
    PageBuffer(const PageBuffer&) = delete;
    PageBuffer& operator=(const PageBuffer&) = delete;
    ~PageBuffer() { release(); }

    /// Makes the block that large; what was in it is lost unless the size stays.
    void resize(std::size_t size) {
        if (size == size_) return;
        release();
        data_ = static_cast<std::byte*>(::operator new(size, std::align_val_t(page)));
        size_ = size;
    }
    void release() noexcept {
        ::operator delete(data_, std::align_val_t(page));
        data_ = nullptr;
        size_ = 0;
    }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] std::span<std::byte> bytes() noexcept { return {data_, size_}; }

  private:
    static constexpr std::size_t page = 4096;
    std::byte* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace vantlow
