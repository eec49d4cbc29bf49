// One-time passwords against the published values (RFC 2289, appendix C).
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "platform/file.h"
#include "platform/process.h"
#include "runtime/tables.h"

namespace vantlow {
namespace {

TEST(OneTimePasswords, ArePublishedOnes) {
    const LibraryTables tables = load_libraries(folder_of(program_path()));
    opieKeyGenerate_t* const generate = tables.secur.opieKeyGenerate;
    ASSERT_NE(generate, nullptr);
    struct Case {
        const char* algorithm;
        const char* secret;
        const char* seed;
        int sequence;
        const char* response;
    };
    const Case cases[] = {{"otp-md4", "This is a test.", "TeSt", 0, "D1854218EBBB0B51"},
                          {"otp-md4", "This is a test.", "TeSt", 99, "C5E612776E6C237A"},
                          {"otp-md4", "AbCdEfGhIjK", "alpha1", 1, "65D20D1949B5F7AB"},
                          {"otp-md5", "This is a test.", "TeSt", 0, "9E876134D90499DD"},
                          {"otp-md5", "This is a test.", "TeSt", 99, "50FE1962C4965880"},
                          {"otp-md5", "OTP's are good", "correct", 99, "B203E28FA525BE47"},
                          {"otp-sha1", "This is a test.", "TeSt", 0, "BB9E6AE1979D8FF4"},
                          {"otp-sha1", "This is a test.", "TeSt", 99, "87FEC7768B73CCF9"},
                          {"otp-sha1", "AbCdEfGhIjK", "alpha1", 99, "27BC71035AAF3DC6"}};
    for (const Case& c : cases) {
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
