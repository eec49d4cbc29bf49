// Keeping a password in a file of the user's.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vantlow {

/// How secrets are kept here, as files name it: "dpapi" where the system encrypts them so that only this user
/// of this machine can read them; "plain" where nothing but the file's mode keeps others out.
std::string_view secret_kind() noexcept;
/// The bytes to be kept; none when the system refuses.
std::optional<std::vector<std::byte>> protect_secret(std::span<const std::byte> secret);
/// The secret again; none when it was another user's or is damaged.
std::optional<std::vector<std::byte>> unprotect_secret(std::span<const std::byte> kept);

}  // namespace vantlow
