// RC4 that discards the beginning of its stream, as BitTorrent's message stream encryption wants it:
// libgcrypt's.
#include <gcrypt.h>

#include <algorithm>
#include <array>
#include <new>

#include "runtime/login/primitives.h"
#include "runtime/operations.h"

struct VantlowRc4 {
    gcry_cipher_hd_t cipher = nullptr;
};

namespace {

bool discard(gcry_cipher_hd_t cipher, std::size_t bytes) noexcept {
    std::array<unsigned char, 1024> bin{};
    while (bytes > 0) {
        const std::size_t step = std::min(bytes, bin.size());
        if (gcry_cipher_encrypt(cipher, bin.data(), step, nullptr, 0) != 0) return false;
        bytes -= step;
    }
    return true;
}

}  // namespace

extern "C" {

VANTLOW_EXPORT RC4_Create_t RC4_Create;
VANTLOW_EXPORT RC4_Delete_t RC4_Delete;
VANTLOW_EXPORT RC4_4_t RC4_4;
VANTLOW_EXPORT RC4_3_t RC4_3;

VantlowRc4* RC4_Create(const void* key, std::size_t key_size, std::size_t discarded) {
    if (key == nullptr || !vantlow::login::start_gcrypt()) return nullptr;
    auto* const stream = new (std::nothrow) VantlowRc4;
    if (stream == nullptr) return nullptr;
    if (gcry_cipher_open(&stream->cipher, GCRY_CIPHER_ARCFOUR, GCRY_CIPHER_MODE_STREAM, 0) == 0 &&
        gcry_cipher_setkey(stream->cipher, key, key_size) == 0 && discard(stream->cipher, discarded)) {
        return stream;
    }
    RC4_Delete(stream);
    return nullptr;
}

void RC4_Delete(VantlowRc4* stream) {
    if (stream == nullptr) return;
    gcry_cipher_close(stream->cipher);
    delete stream;
}

void RC4_4(VantlowRc4* stream, void* destination, const void* source, std::size_t size) {
    if (stream != nullptr && size > 0) gcry_cipher_encrypt(stream->cipher, destination, size, source, size);
}

void RC4_3(VantlowRc4* stream, void* buffer, std::size_t size) {
    if (stream != nullptr && size > 0) gcry_cipher_encrypt(stream->cipher, buffer, size, nullptr, 0);
}

}  // extern "C"
