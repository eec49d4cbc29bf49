#include "support/content.h"

#include <algorithm>
#include <array>
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

}  // namespace

std::string make_content(std::uint64_t seed, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t at = 0; at < size; ++at)
        bytes[at] = static_cast<char>(content_word(seed, at / 8) >> (8 * (at % 8)));
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
    std::vector<std::byte> got;
    if (const FileError error = read_file(path, std::size_t{1} << 30U, got); !error.ok())
        return testing::AssertionFailure() << to_utf8(path) << ": " << error.text();
    const std::string_view found(reinterpret_cast<const char*>(got.data()), got.size());
    const auto differs = std::mismatch(found.begin(), found.end(), bytes.begin(), bytes.end()).first;
    if (found == bytes) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << to_utf8(path) << " has " << found.size() << " bytes of " << bytes.size()
           << " and differs first at offset " << differs - found.begin();
}

testing::AssertionResult file_has_content(const std::u16string& path, std::uint64_t seed, std::int64_t size) {
    return file_has(path, make_content(seed, static_cast<std::size_t>(size)));
}

}  // namespace vantlow::test
