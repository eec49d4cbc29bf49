// The NTLM exchange's last message, as MS-NLMP describes it.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "runtime/login/hash.h"

namespace vantlow::login {

/// What a type-2 message says.
struct NtlmChallenge {
    std::uint32_t flags = 0;
    std::array<std::uint8_t, 8> nonce{};
    Bytes target_info;  ///< the list of attributes, or empty

    /// None for bytes that are no such message.
    static std::optional<NtlmChallenge> parse(View message);
};

/// What of the answer is not the challenge's; tests fix it.
struct NtlmChance {
    std::array<std::uint8_t, 8> client_nonce{};
    std::uint64_t time = 0;  ///< 100 ns since 1601

    /// None when the system gives no random bytes.
    static std::optional<NtlmChance> now();
};

/// The type-3 message. Version 2 where the challenge tells about its target, version 2 session responses
/// where it allows them, else version 1; the old LM response, which gives passwords away, never. `user` may
/// be DOMAIN\name; both are UTF-8. Empty when something is missing, as the chance may be.
Bytes ntlm_response(const NtlmChallenge& challenge, std::string_view user, std::string_view password,
                    const std::optional<NtlmChance>& chance);

/// Copies a message; its size, or 0 when there is none or no room.
std::size_t put_message(const Bytes& message, void* out, std::size_t room) noexcept;

}  // namespace vantlow::login
