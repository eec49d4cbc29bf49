// The fields of a job database, put behind one another. Private to the writers of the database and its
// journal.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "base/guid.h"
#include "base/mem_file.h"

namespace vantlow {

/// The receiver of written bytes.
class ByteSink {
  public:
    ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;
    virtual ~ByteSink() = default;
    virtual void write(std::span<const std::byte> bytes) = 0;
};

/// A memory file as a sink.
class MemFileSink final : public ByteSink {
  public:
    explicit MemFileSink(CQoMemFile& file) : file_(file) {}
    void write(std::span<const std::byte> bytes) override { file_.write(bytes); }

  private:
    CQoMemFile& file_;
};

/// Gathers fields, which are small, and passes them on in larger pieces. Without a sink it only counts bytes.
class FieldWriter {
  public:
    explicit FieldWriter(ByteSink* sink) : sink_(sink) {}
    FieldWriter(const FieldWriter&) = delete;
    FieldWriter& operator=(const FieldWriter&) = delete;
    ~FieldWriter() = default;

    void raw(const void* bytes, std::size_t size) {
        if (size > gathered_.size() - used_) {
            flush();
            if (size > gathered_.size()) {
                hand_on({static_cast<const std::byte*>(bytes), size});
                return;
            }
        }
        if (size > 0) std::memcpy(gathered_.data() + used_, bytes, size);
        used_ += size;
    }
    void u8(std::uint8_t value) { number(value); }
    void i32(std::int32_t value) { number(static_cast<std::uint32_t>(value)); }
    void i64(std::int64_t value) { number(static_cast<std::uint64_t>(value)); }
    void count(std::size_t value) { number(static_cast<std::uint32_t>(value)); }
    void guid(const Guid& guid) { raw(guid.bytes.data(), guid.bytes.size()); }
    void zeros(std::size_t size) {
        constexpr std::array<std::byte, 64> nothing{};
        raw(nothing.data(), std::min(size, nothing.size()));
    }
    /// Writes the text up to its first zero unit, which ends a text in the file.
    void text(std::u16string_view text) {
        wide(text.substr(0, text.find(u'\0')));
        number(std::uint16_t{0});
    }
    /// Writes the UTF-16 units alone, without length and end.
    void wide(std::u16string_view text) {
        if constexpr (std::endian::native == std::endian::little) {
            raw(text.data(), text.size() * 2);
        } else {
            for (const char16_t c : text) number(static_cast<std::uint16_t>(c));
        }
    }
    void flush() {
        hand_on(std::span(gathered_).first(used_));
        used_ = 0;
    }
    [[nodiscard]] std::size_t written() const noexcept { return written_ + used_; }

  private:
    template <class Number>
    void number(Number value) {
        std::array<std::byte, sizeof(Number)> bytes;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<std::byte>(static_cast<std::uint64_t>(value) >> (8 * i));
        }
        raw(bytes.data(), bytes.size());
    }
    void hand_on(std::span<const std::byte> bytes) {
        if (sink_ != nullptr) sink_->write(bytes);
        written_ += bytes.size();
    }

    ByteSink* sink_;
    std::size_t written_ = 0;
    std::size_t used_ = 0;
    std::array<std::byte, 8192> gathered_;
};

}  // namespace vantlow
