// Primitives that the logins and the key exchange are made of: libgcrypt's digests and DES, random bytes of
// the system, and wiping of what was a secret.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

namespace vantlow::login {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

enum class Hash { md4, md5, sha256 };

/// Makes libgcrypt ready; false when its version is older than the one that this was built with. Any thread
/// may call; every operation here calls it, and so must every other user of libgcrypt in these libraries.
bool start_gcrypt() noexcept;

/// The digest of all pieces together.
Bytes digest(Hash kind, std::initializer_list<View> pieces);
/// HMAC (RFC 2104) with MD5.
Bytes hmac_md5(View key, std::initializer_list<View> pieces);
/// "DESL": encrypts the 8 bytes with DES under each third of the 16-byte key, padded with zeroes; 24 bytes,
/// or none without libgcrypt.
Bytes desl(View key, View bytes);

inline View view(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// Fills the view, of at most 256 bytes, with bytes that nobody can guess; false when the system gives none.
/// Any thread may call. The bytes are the system's and not libgcrypt's, which on Windows gathers them from
/// the state of the whole system (all handles of all processes, disks, performance counters) and takes up to
/// seconds for it.
[[nodiscard]] bool fill_random(std::span<std::uint8_t> bytes) noexcept;

/// Overwrites the bytes of a string, vector or array with zeros, in a way that no compiler leaves out because
/// nobody reads them afterwards.
template <class Array>
void wipe(Array& bytes) noexcept {
    volatile auto* const at = bytes.data();
    for (std::size_t i = 0; i < bytes.size(); ++i) at[i] = 0;
}

}  // namespace vantlow::login
