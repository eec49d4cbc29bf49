// Logins: Digest and NTLM as the libraries compute them.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "base/codes.h"
#include "platform/file.h"
#include "platform/process.h"
#include "runtime/tables.h"

namespace vantlow {
namespace {

class LoginTest : public testing::Test {
  protected:
    LoginTest() : tables(load_libraries(folder_of(program_path()))) {}

    LibraryTables tables;
};

VantlowDigest parts_of(const char* algorithm) {
    // RFC 7616, 3.9.1.
    VantlowDigest parts{};
    parts.qop = "auth";
    parts.algorithm = algorithm;
    parts.nonce = "7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v";
    parts.realm = "http-auth@example.org";
    parts.user = "Mufasa";
    parts.password = "Circle of Life";
    parts.method = "GET";
    parts.uri = "/dir/index.html";
    parts.cnonce = "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ";
    parts.nc = "00000001";
    return parts;
}

TEST_F(LoginTest, DigestsAreThoseOfTheStandards) {
    ASSERT_NE(tables.secur.Digest2617, nullptr);
    ASSERT_NE(tables.ssl.WDigest_Response, nullptr);
    std::array<char, 65> out{};
    VantlowDigest parts = parts_of("MD5");
    EXPECT_EQ(tables.secur.Digest2617(&parts, nullptr, out.data(), out.size()), 1);
    EXPECT_STREQ(out.data(), "8ca523f5e9506fed4657c9700eebdbec");
    parts = parts_of("SHA-256");
    EXPECT_EQ(tables.ssl.WDigest_Response(&parts, out.data(), out.size()), 1);
    EXPECT_STREQ(out.data(), "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
    EXPECT_EQ(tables.secur.Digest2617(&parts, nullptr, out.data(), out.size()), 0) << "MD5 alone";
    EXPECT_EQ(tables.ssl.WDigest_Response(&parts, out.data(), 64), 0) << "no room for the end";
    parts.algorithm = "SHA-512";
    EXPECT_EQ(tables.ssl.WDigest_Response(&parts, out.data(), out.size()), 0);
    // MD5("1"), as a client nonce.
    EXPECT_EQ(tables.secur.Digest2617(nullptr, "1", out.data(), out.size()), 1);
    EXPECT_STREQ(out.data(), "c4ca4238a0b923820dcc509a6f75849b");
}

std::string challenge_message(std::uint32_t flags, const std::string& info = {}) {
    std::string message("NTLMSSP\0\x02\0\0\0\0\0\0\0\x38\0\0\0", 20);
    const auto put = [&](std::size_t value, int size) {
        for (int i = 0; i < size; ++i) message.push_back(static_cast<char>(value >> (8 * i) & 0xFFU));
    };
    put(flags, 4);
    message += std::string("\x01\x23\x45\x67\x89\xAB\xCD\xEF", 8) + std::string(8, '\0');
    put(info.size(), 2);
    put(info.size(), 2);
    put(56, 4);
    message += std::string(8, '\0') + info;
    return message;
}

std::string field(const std::string& message, std::size_t at) {
    const auto number = [&](std::size_t from, std::size_t size) {
        std::size_t value = 0;
        for (std::size_t i = size; i-- > 0;)
            value = value << 8U | static_cast<unsigned char>(message[from + i]);
        return value;
    };
    return message.substr(number(at + 4, 4), number(at, 2));
}

std::string hex(const std::string& bytes) {
    return to_hex(std::as_bytes(std::span(bytes)));
}

TEST_F(LoginTest, NtlmAnswersEachKindOfChallenge) {
    ASSERT_NE(tables.secur.NTLM1_ChallengeResponse, nullptr);
    const auto answer = [&](const std::string& challenge) {
        std::string out(4096, '\0');
        out.resize(tables.secur.NTLM1_ChallengeResponse(challenge.data(), challenge.size(), "Domain\\User",
                                                        "Password", out.data(), out.size()));
        return out;
    };
    // MS-NLMP, 4.2.2: version 1.
    const std::string v1 = answer(challenge_message(0xA0008201));
    ASSERT_GE(v1.size(), 64U);
    EXPECT_EQ(hex(field(v1, 20)), "67c43011f30298a2ad35ece64f16331c44bdbed927841f94");
    EXPECT_EQ(field(v1, 28), std::string("D\0o\0m\0a\0i\0n\0", 12));
    EXPECT_EQ(field(v1, 36), std::string("U\0s\0e\0r\0", 8));
    // Session security: the client's nonce stands where the old response did.
    const std::string session = answer(challenge_message(0xA0088201));
    EXPECT_EQ(field(session, 12).substr(8), std::string(16, '\0'));
    EXPECT_EQ(field(session, 20).size(), 24U);
    // Version 2 repeats what the server told of its target.
    const std::string info("\x01\0\x04\0N\0T\0\0\0\0\0", 12);
    const std::string v2 = answer(challenge_message(0xA0888201, info));
    EXPECT_EQ(field(v2, 20).size(), 16 + 28 + info.size() + 4);
    EXPECT_NE(field(v2, 20).find(info), std::string::npos);
    EXPECT_EQ(v2.find(std::string("P\0a\0s", 5)), std::string::npos);
}

TEST_F(LoginTest, ADamagedChallengeIsNoChallenge) {
    const std::string whole = challenge_message(0xA0888201, std::string("\x01\0\x04\0N\0T\0\0\0\0\0", 12));
    ASSERT_NE(tables.ssl.NTLM_Challenge, nullptr);
    VantlowNtlm* const good = tables.ssl.NTLM_Challenge(whole.data(), whole.size());
    ASSERT_NE(good, nullptr);
    std::array<char, 64> small{};
    EXPECT_EQ(tables.ssl.NTLM_Response(good, "u", "p", small.data(), small.size()), 0U);
    tables.ssl.NTLM_Destroy(good);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        if (size >= 32 && size < 48) continue;  // a message of the first kind, without room for more fields
        EXPECT_EQ(tables.ssl.NTLM_Challenge(whole.data(), size), nullptr) << size;
    }
    tables.ssl.NTLM_Destroy(nullptr);
}

}  // namespace
}  // namespace vantlow
