// The answer to a Digest challenge (RFC 2617, RFC 7616).
#pragma once

#include <optional>
#include <string>

#include "runtime/login/hash.h"
#include "runtime/operations.h"

namespace vantlow::login {

/// Lower-case hexadecimal digits.
std::string hex(View bytes);

/// The response for these parts; none for an algorithm or a quality of protection that is not known.
std::optional<std::string> digest_response(const VantlowDigest& parts);

/// Copies a text with its zero byte; false when there is no room.
bool put(const std::string& text, char* out, std::size_t room) noexcept;

}  // namespace vantlow::login
