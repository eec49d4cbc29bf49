#include "support/content.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <vector>

#include "base/text.h"
#include "platform/file.h"

namespace vantlow::test {
namespace {

// The eight bytes at index `i` of a seed: SplitMix64's mixing of a counter.
std::uint64_t content_word(std::uint64_t seed, std::uint64_t i) {
    std::uint64_t x = (seed + 1) * 0xD1342543DE82EF95ULL + (i + 1) * 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27U)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31U);
}

std::uint32_t crc32(std::string_view bytes) {
    static const auto table = [] {
        std::array<std::uint32_t, 256> made{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t value = i;
            for (int bit = 0; bit < 8; ++bit) value = (value >> 1U) ^ ((value & 1U) != 0 ? 0xEDB88320U : 0U);
            made[i] = value;
        }
        return made;
    }();
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char c : bytes) crc = table[(crc ^ static_cast<std::uint8_t>(c)) & 0xFFU] ^ (crc >> 8U);
    return ~crc;
}

void put_little(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> static_cast<unsigned>(8 * i)));
}

using Expected = std::function<void(std::int64_t offset, std::span<std::byte> into)>;

testing::AssertionResult compare(const std::u16string& path, std::int64_t size, const Expected& expected) {
    constexpr std::size_t step = 256 * 1024;
    File file;
    if (FileError error = file.open(path, OpenMode::read); !error.ok()) {
        return testing::AssertionFailure() << to_utf8(path) << ": " << error.text();
    }
    std::vector<std::byte> got(step);
    std::vector<std::byte> wanted(step);
    std::int64_t offset = 0;
    for (;;) {
        std::size_t bytes = 0;
        if (FileError error = file.read_at(offset, got, bytes); !error.ok()) {
            return testing::AssertionFailure() << to_utf8(path) << " at " << offset << ": " << error.text();
        }
        const auto due = static_cast<std::size_t>(std::clamp<std::int64_t>(size - offset, 0, step));
        const std::size_t both = std::min(bytes, due);
        expected(offset, std::span(wanted).first(both));
        const auto [mine, theirs] =
            std::mismatch(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(both), wanted.begin());
        const auto same = static_cast<std::size_t>(mine - got.begin());
        if (same < both) {
            return testing::AssertionFailure()
                   << to_utf8(path) << " differs first at offset " << offset + static_cast<std::int64_t>(same)
                   << " (" << std::to_integer<int>(*mine) << " instead of " << std::to_integer<int>(*theirs)
                   << "); it has " << file.size() << " bytes of " << size;
        }
        if (bytes != due) {
            return testing::AssertionFailure()
                   << to_utf8(path) << " has " << file.size() << " bytes instead of " << size;
        }
        offset += static_cast<std::int64_t>(bytes);
        if (bytes < step) return testing::AssertionSuccess();
    }
}

}  // namespace

void fill_content(std::uint64_t seed, std::int64_t offset, std::span<std::byte> into) {
    auto at = static_cast<std::uint64_t>(offset);
    std::size_t done = 0;
    while (done < into.size()) {
        const std::uint64_t word = content_word(seed, at / 8);
        for (std::uint64_t in_word = at % 8; in_word < 8 && done < into.size(); ++in_word, ++at) {
            into[done++] = static_cast<std::byte>(word >> (8 * in_word));
        }
    }
}

std::string make_content(std::uint64_t seed, std::size_t size) {
    std::string bytes(size, '\0');
    fill_content(seed, 0, std::as_writable_bytes(std::span(bytes)));
    return bytes;
}

std::string gzip_stored(std::string_view bytes) {
    // Deflate, no flags, no time, no extra flags, unknown system.
    std::string out("\x1f\x8b\x08\0\0\0\0\0\0\xff", 10);
    const std::string_view all = bytes;
    do {
        const std::string_view block = bytes.substr(0, 65535);
        bytes.remove_prefix(block.size());
        out.push_back(bytes.empty() ? '\1' : '\0');  // the final block's bit, type 00
        const auto size = static_cast<std::uint32_t>(block.size());
        put_little(out, size, 2);
        put_little(out, ~size, 2);
        out += block;
    } while (!bytes.empty());
    put_little(out, crc32(all), 4);
    put_little(out, static_cast<std::uint32_t>(all.size()), 4);
    return out;
}

testing::AssertionResult file_has(const std::u16string& path, std::string_view bytes) {
    return compare(path, static_cast<std::int64_t>(bytes.size()),
                   [&](std::int64_t offset, std::span<std::byte> into) {
                       if (!into.empty()) std::memcpy(into.data(), bytes.data() + offset, into.size());
                   });
}

testing::AssertionResult file_has_content(const std::u16string& path, std::uint64_t seed, std::int64_t size) {
    return compare(path, size,
                   [&](std::int64_t offset, std::span<std::byte> into) { fill_content(seed, offset, into); });
}

}  // namespace vantlow::test
