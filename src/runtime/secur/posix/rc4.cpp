// RC4 that discards the beginning of its stream, as BitTorrent's message stream encryption wants it:
// OpenSSL's, which is half as fast again as libgcrypt's and is linked for TLS already. Its plain functions
// are called, because the other way to them leads through a provider that systems may leave out.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/rc4.h>

#include <algorithm>
#include <array>
#include <new>

#include "runtime/operations.h"

struct VantlowRc4 {
    RC4_KEY key{};
};

namespace {

constexpr std::size_t longest_key = 256;

unsigned char* bytes_of(void* memory) noexcept {
    return static_cast<unsigned char*>(memory);
}

}  // namespace

extern "C" {

VANTLOW_EXPORT RC4_Create_t RC4_Create;
VANTLOW_EXPORT RC4_Delete_t RC4_Delete;
VANTLOW_EXPORT RC4_4_t RC4_4;
VANTLOW_EXPORT RC4_3_t RC4_3;

VantlowRc4* RC4_Create(const void* key, std::size_t key_size, std::size_t discarded) {
    if (key == nullptr || key_size == 0 || key_size > longest_key) return nullptr;
    auto* const stream = new (std::nothrow) VantlowRc4;
    if (stream == nullptr) return nullptr;
    RC4_set_key(&stream->key, static_cast<int>(key_size), static_cast<const unsigned char*>(key));
    std::array<unsigned char, 1024> bin{};
    for (std::size_t left = discarded; left > 0;) {
        const std::size_t step = std::min(left, bin.size());
        RC4(&stream->key, step, bin.data(), bin.data());
        left -= step;
    }
    return stream;
}

void RC4_Delete(VantlowRc4* stream) {
    delete stream;
}

void RC4_4(VantlowRc4* stream, void* destination, const void* source, std::size_t size) {
    if (stream == nullptr || size == 0) return;
    RC4(&stream->key, size, static_cast<const unsigned char*>(source), bytes_of(destination));
}

void RC4_3(VantlowRc4* stream, void* buffer, std::size_t size) {
    if (stream != nullptr && size > 0) RC4(&stream->key, size, bytes_of(buffer), bytes_of(buffer));
}

}  // extern "C"
