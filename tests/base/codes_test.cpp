#include "base/codes.h"

#include <gtest/gtest.h>

#include "base/digest.h"

namespace vantlow {
namespace {

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

TEST(Codes, hexadecimal_both_ways) {
    EXPECT_EQ(to_hex(bytes_of(std::string_view("\x00\x7F\x80\xFF", 4))), "007f80ff");
    const auto bytes = from_hex("007F80ff");
    ASSERT_TRUE(bytes);
    EXPECT_EQ(to_hex(*bytes), "007f80ff");
    EXPECT_EQ(from_hex("")->size(), 0U);
    for (const char* bad : {"0", "0g", "-1", "0x", " 1", "1 "}) EXPECT_EQ(from_hex(bad), std::nullopt) << bad;
}

TEST(Codes, base64_of_the_standard) {
    // RFC 4648, 10.
    const std::pair<std::string, std::string> vectors[] = {{"", ""},
                                                           {"f", "Zg=="},
                                                           {"fo", "Zm8="},
                                                           {"foo", "Zm9v"},
                                                           {"foob", "Zm9vYg=="},
                                                           {"fooba", "Zm9vYmE="},
                                                           {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, coded] : vectors) EXPECT_EQ(to_base64(plain), coded);
    EXPECT_EQ(to_base64("\xFB\xEF\xFF"), "++//");
}

// RFC 1321, A.5 and FIPS 180-4's examples; the longer text is fed in pieces that do not end with a block.
TEST(Digest, knows_the_published_vectors_in_one_piece_and_in_many) {
    const std::string abc = "abc";
    const std::string two_blocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    const struct {
        DigestKind kind;
        std::string text;
        std::string digest;
    } cases[] = {
        {DigestKind::md5, "", "d41d8cd98f00b204e9800998ecf8427e"},
        {DigestKind::md5, abc, "900150983cd24fb0d6963f7d28e17f72"},
        {DigestKind::sha1, abc, "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {DigestKind::sha1, two_blocks, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {DigestKind::sha256, abc, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {DigestKind::sha256, two_blocks, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {DigestKind::sha1, std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (const auto& c : cases) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{63}, std::size_t{1000001}}) {
            Digest digest(c.kind);
            std::string_view left = c.text;
            while (!left.empty()) {
                const auto now = left.substr(0, piece);
                digest.update(bytes_of(now));
                left.remove_prefix(now.size());
            }
            const auto result = digest.finish();
            EXPECT_EQ(to_hex(result), c.digest);
            EXPECT_EQ(result.size(), digest_size(c.kind));
        }
    }
}

TEST(Digest, names_are_what_people_write) {
    EXPECT_EQ(digest_kind("MD5"), DigestKind::md5);
    EXPECT_EQ(digest_kind("Sha-1"), DigestKind::sha1);
    EXPECT_EQ(digest_kind("sha-256"), DigestKind::sha256);
    EXPECT_EQ(digest_kind("sha"), std::nullopt);
    EXPECT_EQ(digest_kind(""), std::nullopt);
}

}  // namespace
}  // namespace vantlow
