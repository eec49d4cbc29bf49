#include "runtime/login/primitives.h"

#include <gcrypt.h>

#include <algorithm>
#include <array>

namespace vantlow::login {
namespace {

int algorithm(Hash kind) noexcept {
    switch (kind) {
        case Hash::md4:
            return GCRY_MD_MD4;
        case Hash::md5:
            return GCRY_MD_MD5;
        case Hash::sha256:
            break;
    }
    return GCRY_MD_SHA256;
}

Bytes run(int kind, unsigned flags, View key, std::initializer_list<View> pieces) {
    Bytes result;
    gcry_md_hd_t handle = nullptr;
    if (!start_gcrypt() || gcry_md_open(&handle, kind, flags) != 0) return result;
    if (key.empty() || gcry_md_setkey(handle, key.data(), key.size()) == 0) {
        for (const View piece : pieces) gcry_md_write(handle, piece.data(), piece.size());
        const unsigned char* bytes = gcry_md_read(handle, kind);
        if (bytes != nullptr) result.assign(bytes, bytes + gcry_md_get_algo_dlen(kind));
    }
    gcry_md_close(handle);
    return result;
}

// Expands seven bytes of key to the eight that DES wants, whose lowest bits are parity and ignored.
std::array<std::uint8_t, 8> des_key(View seven) {
    std::array<std::uint8_t, 8> key{};
    std::uint64_t bits = 0;
    for (const std::uint8_t byte : seven) bits = bits << 8U | byte;
    for (std::size_t i = 8; i-- > 0;) {
        key[i] = static_cast<std::uint8_t>((bits & 0x7FU) << 1U);
        bits >>= 7U;
    }
    return key;
}

bool des(View seven, View block, std::uint8_t* out) {
    gcry_cipher_hd_t handle = nullptr;
    if (gcry_cipher_open(&handle, GCRY_CIPHER_DES, GCRY_CIPHER_MODE_ECB, 0) != 0) return false;
    auto key = des_key(seven);
    // A password can yield a key that DES calls weak; libgcrypt reports it, and works with it.
    const gcry_error_t error = gcry_cipher_setkey(handle, key.data(), key.size());
    const bool usable = error == 0 || gcry_err_code(error) == GPG_ERR_WEAK_KEY;
    const bool done = usable && gcry_cipher_encrypt(handle, out, 8, block.data(), block.size()) == 0;
    gcry_cipher_close(handle);
    wipe(key);
    return done;
}

}  // namespace

bool start_gcrypt() noexcept {
    static const bool ready = [] {
        // The library that this code is a part of may have initialised libgcrypt.
        if (gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P) != 0) return true;
        if (gcry_check_version(GCRYPT_VERSION) == nullptr) return false;
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        return true;
    }();
    return ready;
}

Bytes digest(Hash kind, std::initializer_list<View> pieces) {
    return run(algorithm(kind), 0, {}, pieces);
}

Bytes hmac_md5(View key, std::initializer_list<View> pieces) {
    return run(GCRY_MD_MD5, GCRY_MD_FLAG_HMAC, key, pieces);
}

Bytes desl(View key, View bytes) {
    Bytes padded(21);
    std::copy(key.begin(), key.end(), padded.begin());
    Bytes result(24);
    bool done = start_gcrypt();
    for (std::size_t third = 0; done && third < 3; ++third) {
        done = des(View(padded).subspan(third * 7, 7), bytes, result.data() + third * 8);
    }
    wipe(padded);
    if (!done) result.clear();
    return result;
}

}  // namespace vantlow::login
