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

const SecurTable& secur() {
    static const LibraryTables tables = load_libraries(folder_of(program_path()));
    return tables.secur;
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

}  // namespace
}  // namespace vantlow
