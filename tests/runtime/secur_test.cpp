// The operations of libsecur and libssl: Diffie-Hellman, RC4, logins, one-time passwords.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "base/codes.h"
#include "platform/file.h"
#include "platform/process.h"
#include "runtime/tables.h"

namespace vantlow {
namespace {

using Key = std::array<std::byte, 96>;

const LibraryTables& libraries() {
    static const LibraryTables tables = load_libraries(folder_of(program_path()));
    return tables;
}
const SecurTable& secur() {
    return libraries().secur;
}
const SslTable& ssl() {
    return libraries().ssl;
}

// The group of BitTorrent's message stream encryption.
std::vector<std::byte> prime() {
    return *from_hex(
        "FFFFFFFFFFFFFFFFC90FDAA22168C234C4C6628B80DC1CD129024E088A67CC74020BBEA63B139B22514A08798E3404DD"
        "EF9519B3CD3A431B302B0A6DF25F14374FE1356D6D51C245E485B576625E7EC6F44C42E9A63A36210000000000090563");
}

VantlowDh* make_dh() {
    const std::byte two{2};
    const auto p = prime();
    return secur().DH_Create(p.data(), p.size(), &two, 1);
}

TEST(DiffieHellman, BothSidesGetOneSecretAndEachConnectionAnother) {
    ASSERT_NE(secur().DH_Create, nullptr) << "libsecur is not there";
    Key earlier{};
    for (int round = 0; round < 3; ++round) {
        VantlowDh* const a = make_dh();
        VantlowDh* const b = make_dh();
        ASSERT_NE(a, nullptr);
        ASSERT_NE(b, nullptr);
        Key ya{}, yb{}, sa{}, sb{};
        EXPECT_EQ(secur().DH_GetSecret(a, sa.data(), sa.size()), 0) << "before the other key";
        EXPECT_EQ(secur().DH_GetPublicKey(a, ya.data(), ya.size()), 96);
        EXPECT_EQ(secur().DH_GetPublicKey(b, yb.data(), yb.size()), 96);
        EXPECT_EQ(secur().DH_ComputeSecret(a, yb.data(), yb.size()), 96);
        EXPECT_EQ(secur().DH_ComputeSecret(b, ya.data(), ya.size()), 96);
        EXPECT_EQ(secur().DH_GetSecret(a, sa.data(), sa.size()), 96);
        EXPECT_EQ(secur().DH_GetSecret(b, sb.data(), sb.size()), 96);
        EXPECT_EQ(sa, sb);
        EXPECT_NE(sa, earlier);
        earlier = sa;
        secur().DH_Delete(a);
        secur().DH_Delete(b);
    }
}

TEST(DiffieHellman, KeysThatGiveTheSecretAwayAreRefused) {
    VantlowDh* const dh = make_dh();
    ASSERT_NE(dh, nullptr);
    Key key{};
    EXPECT_EQ(secur().DH_ComputeSecret(dh, key.data(), key.size()), 0) << "0";
    key.back() = std::byte{1};
    EXPECT_EQ(secur().DH_ComputeSecret(dh, key.data(), key.size()), 0) << "1";
    std::memcpy(key.data(), prime().data(), key.size());
    EXPECT_EQ(secur().DH_ComputeSecret(dh, key.data(), key.size()), 0) << "the prime";
    key.back() = std::byte{0x62};
    EXPECT_EQ(secur().DH_ComputeSecret(dh, key.data(), key.size()), 0) << "the prime less one";
    key.fill(std::byte{0xFF});
    EXPECT_EQ(secur().DH_ComputeSecret(dh, key.data(), key.size()), 0) << "above the prime";
    key.fill(std::byte{0x11});
    EXPECT_EQ(secur().DH_ComputeSecret(dh, key.data(), 95), 0) << "too short";
    EXPECT_EQ(secur().DH_ComputeSecret(dh, key.data(), key.size()), 96);
    secur().DH_Delete(dh);
}

// RFC 6229, the 40-bit key, at the offsets 0 and 1024.
TEST(Rc4, GivesThePublishedKeyStreamBehindTheDiscard) {
    ASSERT_NE(secur().RC4_Create, nullptr);
    const std::array<unsigned char, 5> key{1, 2, 3, 4, 5};
    const std::pair<std::size_t, const char*> streams[] = {{0, "b2396305f03dc027ccc3524a0a1118a8"},
                                                           {1024, "30abbcc7c20b01609f23ee2d5f6bb7df"}};
    for (const auto& [discarded, expected] : streams) {
        VantlowRc4* const whole = secur().RC4_Create(key.data(), key.size(), discarded);
        VantlowRc4* const parts = secur().RC4_Create(key.data(), key.size(), discarded);
        ASSERT_NE(whole, nullptr);
        std::array<std::byte, 16> zero{}, out{}, in_place{};
        secur().RC4_4(whole, out.data(), zero.data(), zero.size());
        EXPECT_EQ(to_hex(out), expected);
        secur().RC4_3(parts, in_place.data(), 3);
        secur().RC4_3(parts, in_place.data() + 3, 13);
        EXPECT_EQ(to_hex(in_place), expected);
        secur().RC4_Delete(whole);
        secur().RC4_Delete(parts);
    }
}

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

TEST(Logins, DigestsAreThoseOfTheStandards) {
    ASSERT_NE(secur().Digest2617, nullptr);
    ASSERT_NE(ssl().WDigest_Response, nullptr);
    std::array<char, 65> out{};
    VantlowDigest parts = parts_of("MD5");
    EXPECT_EQ(secur().Digest2617(&parts, nullptr, out.data(), out.size()), 1);
    EXPECT_STREQ(out.data(), "8ca523f5e9506fed4657c9700eebdbec");
    parts = parts_of("SHA-256");
    EXPECT_EQ(ssl().WDigest_Response(&parts, out.data(), out.size()), 1);
    EXPECT_STREQ(out.data(), "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
    EXPECT_EQ(secur().Digest2617(&parts, nullptr, out.data(), out.size()), 0) << "MD5 alone";
    EXPECT_EQ(ssl().WDigest_Response(&parts, out.data(), 64), 0) << "no room for the end";
    parts.algorithm = "SHA-512";
    EXPECT_EQ(ssl().WDigest_Response(&parts, out.data(), out.size()), 0);
    // MD5("1"), as a client nonce.
    EXPECT_EQ(secur().Digest2617(nullptr, "1", out.data(), out.size()), 1);
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

std::string hex_of(const std::string& bytes) {
    return to_hex(std::as_bytes(std::span(bytes)));
}

TEST(Logins, NtlmAnswersEachKindOfChallenge) {
    ASSERT_NE(secur().NTLM1_ChallengeResponse, nullptr);
    const auto answer = [&](const std::string& challenge) {
        std::string out(4096, '\0');
        out.resize(secur().NTLM1_ChallengeResponse(challenge.data(), challenge.size(), "Domain\\User",
                                                   "Password", out.data(), out.size()));
        return out;
    };
    // MS-NLMP, 4.2.2: version 1.
    const std::string v1 = answer(challenge_message(0xA0008201));
    ASSERT_GE(v1.size(), 64U);
    EXPECT_EQ(hex_of(field(v1, 20)), "67c43011f30298a2ad35ece64f16331c44bdbed927841f94");
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

TEST(Logins, ADamagedChallengeIsNoChallenge) {
    const std::string whole = challenge_message(0xA0888201, std::string("\x01\0\x04\0N\0T\0\0\0\0\0", 12));
    ASSERT_NE(ssl().NTLM_Challenge, nullptr);
    VantlowNtlm* const good = ssl().NTLM_Challenge(whole.data(), whole.size());
    ASSERT_NE(good, nullptr);
    std::array<char, 64> small{};
    EXPECT_EQ(ssl().NTLM_Response(good, "u", "p", small.data(), small.size()), 0U);
    ssl().NTLM_Destroy(good);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        if (size >= 32 && size < 48) continue;  // a message of the first kind, without room for more fields
        EXPECT_EQ(ssl().NTLM_Challenge(whole.data(), size), nullptr) << size;
    }
    ssl().NTLM_Destroy(nullptr);
}

TEST(OneTimePasswords, ArePublishedOnes) {
    opieKeyGenerate_t* const generate = secur().opieKeyGenerate;
    ASSERT_NE(generate, nullptr);
    const struct {
        const char* algorithm;
        const char* secret;
        const char* seed;
        int sequence;
        const char* response;
    } cases[] = {{"otp-md4", "This is a test.", "TeSt", 0, "D1854218EBBB0B51"},
                 {"otp-md4", "This is a test.", "TeSt", 99, "C5E612776E6C237A"},
                 {"otp-md4", "AbCdEfGhIjK", "alpha1", 1, "65D20D1949B5F7AB"},
                 {"otp-md5", "This is a test.", "TeSt", 0, "9E876134D90499DD"},
                 {"otp-md5", "This is a test.", "TeSt", 99, "50FE1962C4965880"},
                 {"otp-md5", "OTP's are good", "correct", 99, "B203E28FA525BE47"},
                 {"otp-sha1", "This is a test.", "TeSt", 0, "BB9E6AE1979D8FF4"},
                 {"otp-sha1", "This is a test.", "TeSt", 99, "87FEC7768B73CCF9"},
                 {"otp-sha1", "AbCdEfGhIjK", "alpha1", 99, "27BC71035AAF3DC6"}};
    for (const auto& c : cases) {
        std::array<char, VANTLOW_OPIE_ROOM> response{};
        EXPECT_EQ(generate(c.algorithm, c.sequence, c.seed, c.secret, response.data()), 0);
        const bool known = std::string(c.response) == response.data();
        EXPECT_TRUE(known) << c.algorithm << " " << c.seed << " " << c.sequence << ": " << response.data();
    }
    std::array<char, VANTLOW_OPIE_ROOM> response{};
    EXPECT_EQ(generate("otp-md6", 1, "a", "b", response.data()), -1);
    EXPECT_EQ(generate("otp-md5", -1, "a", "b", response.data()), -1);
}

}  // namespace
}  // namespace vantlow
