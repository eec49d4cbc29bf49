// One-time passwords (RFC 2289) over libgcrypt.
#include <gcrypt.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "runtime/login/primitives.h"
#include "runtime/operations.h"

namespace {

using Key = std::array<unsigned char, 8>;

constexpr int most_steps = 9999;

struct Algorithm {
    const char* name;
    int digest;
};
constexpr std::array algorithms{Algorithm{"otp-md4", GCRY_MD_MD4}, Algorithm{"otp-md5", GCRY_MD_MD5},
                                Algorithm{"otp-sha1", GCRY_MD_SHA1}};

// Hashes the bytes and folds the digest to 64 bits (RFC 2289, appendix A). SHA-1's words come out in
// little-endian order.
Key hash(int algorithm, const void* bytes, std::size_t size) noexcept {
    std::array<unsigned char, 20> digest{};
    gcry_md_hash_buffer(algorithm, digest.data(), bytes, size);
    Key key{};
    const bool sha = algorithm == GCRY_MD_SHA1;
    for (std::size_t i = 0; i < key.size(); ++i) {
        key[i] = static_cast<unsigned char>(digest[i] ^ digest[i + 8]);
        if (sha && i < 4) key[i] = static_cast<unsigned char>(key[i] ^ digest[i + 16]);
    }
    if (sha) {
        std::reverse(key.begin(), key.begin() + 4);
        std::reverse(key.begin() + 4, key.end());
    }
    return key;
}

}  // namespace

extern "C" {

VANTLOW_EXPORT opieKeyGenerate_t opieKeyGenerate;

int opieKeyGenerate(const char* algorithm, int sequence, const char* seed, const char* secret,
                    char* response) try {
    if (algorithm == nullptr || seed == nullptr || secret == nullptr || response == nullptr) return -1;
    const auto* const found = std::find_if(algorithms.begin(), algorithms.end(), [&](const Algorithm& a) {
        return std::strcmp(a.name, algorithm) == 0;
    });
    const bool usable = found != algorithms.end() && sequence >= 0 && sequence <= most_steps &&
                        vantlow::login::start_gcrypt() && gcry_md_test_algo(found->digest) == 0;
    if (!usable) return -1;
    std::string start;
    start.reserve(std::strlen(seed) +
                  std::strlen(secret));  // growing would leave pieces of the secret behind
    start += seed;
    for (char& c : start) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    start += secret;
    Key key = hash(found->digest, start.data(), start.size());
    vantlow::login::wipe(start);
    for (int i = 0; i < sequence; ++i) key = hash(found->digest, key.data(), key.size());
    for (std::size_t i = 0; i < key.size(); ++i) std::snprintf(response + 2 * i, 3, "%02X", key[i]);
    return 0;
} catch (...) {
    return -1;  // no memory
}

}  // extern "C"
