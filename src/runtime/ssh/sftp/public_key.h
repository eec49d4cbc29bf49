// The public half of a private key, as libssh2 wants to be told it.
#pragma once

#include <string>

namespace vantlow::ssh {

/// "ssh-ed25519 AAAA..." of a private key in OpenSSH's own form (PROTOCOL.key), in which the public half
/// stands in the clear. Empty for other forms and for what cannot be read: libssh2 finds out by itself then,
/// where its cryptography can.
std::string public_key_of(const std::string& private_key);

}  // namespace vantlow::ssh
