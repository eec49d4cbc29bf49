// The answers to challenges: Digest (RFC 2617, RFC 7616), and the last message of an NTLM exchange (MS-NLMP).
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/login/primitives.h"
#include "runtime/operations.h"

namespace vantlow::login {

/// The contents of a type-2 message.
struct NtlmChallenge {
    std::uint32_t flags = 0;
    std::array<std::uint8_t, 8> nonce{};
    Bytes target_info;  ///< the list of attributes, or empty

    /// Reads the message; none for bytes that are no such message.
    static std::optional<NtlmChallenge> parse(View message);
};

/// The parts of an answer that do not depend on the challenge; tests fix them.
struct NtlmChance {
    std::array<std::uint8_t, 8> client_nonce{};
    std::uint64_t time = 0;  ///< 100 ns since 1601

    /// None when the system gives no random bytes.
    static std::optional<NtlmChance> now();
};

/// Makes the type-3 message: version 2 where the challenge describes its target, version 2 session responses
/// where it allows them, else version 1; never the old LM response, which gives passwords away. `user` may be
/// DOMAIN\name; both are UTF-8. Empty when something is missing, such as `chance`.
Bytes ntlm_response(const NtlmChallenge& challenge, std::string_view user, std::string_view password,
                    const std::optional<NtlmChance>& chance);

/// Copies a message; returns its size, or 0 when there is none or no room.
std::size_t put_message(const Bytes& message, void* out, std::size_t room) noexcept;

/// Lower-case hexadecimal digits.
std::string hex(View bytes);

/// The response to a Digest challenge for these parts; none for an unknown algorithm or quality of
/// protection.
std::optional<std::string> digest_response(const VantlowDigest& parts);

/// Copies a text with its zero byte; false when there is no room.
bool put(const std::string& text, char* out, std::size_t room) noexcept;

}  // namespace vantlow::login
