// The bytes that test servers give, and files compared with them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace vantlow::test {

/// The first `size` bytes of a seed's content. No two seeds, and no two places of one seed, look alike, so
/// that a piece in the wrong place is seen.
std::string make_content(std::uint64_t seed, std::size_t size);

/// A gzip file (RFC 1952) of the bytes, made of stored blocks: as long as the content and a little more.
std::string gzip_stored(std::string_view bytes);

/// True when the file holds exactly these bytes; a failure tells both sizes and the first offset that
/// differs.
testing::AssertionResult file_has(const std::u16string& path, std::string_view bytes);
/// The same for a seed's content.
testing::AssertionResult file_has_content(const std::u16string& path, std::uint64_t seed, std::int64_t size);

}  // namespace vantlow::test
