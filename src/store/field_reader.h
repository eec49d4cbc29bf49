// The fields of a job database, taken off its bytes one after the other. Private to the reader of the
// database.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "base/guid.h"

namespace vantlow {

/// Takes field after field off the bytes. The first field that does not fit spoils the reader: it and all
/// later ones are zero or empty, so that a record is read in one go and judged at its end.
class FieldReader {
  public:
    explicit FieldReader(std::span<const std::byte> bytes) : left_(bytes) {}

    [[nodiscard]] bool ok() const noexcept { return ok_; }
    void spoil() noexcept { ok_ = false; }
    [[nodiscard]] std::size_t left() const noexcept { return left_.size(); }

    std::span<const std::byte> take(std::size_t size) noexcept {
        if (!ok_ || size > left_.size()) {
            ok_ = false;
            return {};
        }
        const auto taken = left_.first(size);
        left_ = left_.subspan(size);
        return taken;
    }
    void skip(std::size_t size) noexcept { take(size); }
    std::uint8_t u8() noexcept { return static_cast<std::uint8_t>(number<std::uint8_t>()); }
    std::uint32_t u32() noexcept { return number<std::uint32_t>(); }
    std::int32_t i32() noexcept { return static_cast<std::int32_t>(number<std::uint32_t>()); }
    std::int64_t i64() noexcept { return static_cast<std::int64_t>(number<std::uint64_t>()); }
    Guid guid() noexcept {
        Guid guid;
        const auto bytes = take(guid.bytes.size());
        if (!bytes.empty()) std::memcpy(guid.bytes.data(), bytes.data(), bytes.size());
        return guid;
    }
    std::u16string text() {
        if (!ok_) return {};
        const std::size_t most = left_.size() / 2;
        std::size_t length = 0;
        while (length < most && unit(length) != 0) ++length;
        if (length == most) ok_ = false;
        const auto bytes = take((length + 1) * 2);
        return ok_ ? units(bytes.first(length * 2)) : std::u16string();
    }
    std::string narrow(std::size_t size) {
        const auto bytes = take(size);
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }
    std::u16string wide(std::size_t size) { return units(take(size / 2 * 2)); }

  private:
    template <class Number>
    Number number() noexcept {
        const auto bytes = take(sizeof(Number));
        Number value = 0;
        for (std::size_t i = bytes.size(); i-- > 0;) {
            value = static_cast<Number>(static_cast<std::uint64_t>(value) << 8U) |
                    std::to_integer<Number>(bytes[i]);
        }
        return value;
    }
    [[nodiscard]] std::uint16_t unit(std::size_t index) const noexcept {
        return static_cast<std::uint16_t>(std::to_integer<unsigned>(left_[2 * index]) |
                                          (std::to_integer<unsigned>(left_[2 * index + 1]) << 8U));
    }
    static std::u16string units(std::span<const std::byte> bytes) {
        std::u16string text(bytes.size() / 2, u'\0');
        if (!bytes.empty()) std::memcpy(text.data(), bytes.data(), text.size() * 2);
        if constexpr (std::endian::native == std::endian::big) {
            for (char16_t& c : text) c = static_cast<char16_t>((c << 8U) | (c >> 8U));
        }
        return text;
    }

    std::span<const std::byte> left_;
    bool ok_ = true;
};

}  // namespace vantlow
