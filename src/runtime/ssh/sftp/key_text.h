// The text forms of SSH keys: Base64, with and without padding, and the public half of a private key.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantlow::ssh {

/// Base64 (RFC 4648, 4) without padding, as fingerprints are written.
std::string base64_unpadded(const unsigned char* bytes, std::size_t size);

/// Base64 with padding, which libssh2 needs where it decodes: version 1.11 reserves too little room for a
/// text without it.
std::string base64_padded(const unsigned char* bytes, std::size_t size);

/// The bytes of a Base64 text; every character that is no digit is skipped.
std::string base64_decoded(std::string_view text);

/// The public half, "ssh-ed25519 AAAA...", of a private key in OpenSSH's own form (PROTOCOL.key), in which
/// the public half is not encrypted. Empty for other forms and for a key that cannot be read: libssh2 then
/// derives it by itself, where its cryptography can.
std::string public_key_of(const std::string& private_key);

}  // namespace vantlow::ssh
