// What the logins compute with: libgcrypt's digests and DES.
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

/// Makes libgcrypt ready; false when its version is too old. Any thread; every operation here calls it.
bool start_gcrypt() noexcept;

/// The digest of all pieces together.
Bytes digest(Hash kind, std::initializer_list<View> pieces);
/// HMAC (RFC 2104) with MD5.
Bytes hmac_md5(View key, std::initializer_list<View> pieces);
/// "DESL": the 8 bytes encrypted with DES under each third of the 16-byte key, padded with zeroes; 24 bytes.
Bytes desl(View key, View bytes);

inline View view(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace vantlow::login
