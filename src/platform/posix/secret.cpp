#include "platform/secret.h"

namespace vantlow {

std::string_view secret_kind() noexcept {
    return "plain";
}

std::optional<std::vector<std::byte>> protect_secret(std::span<const std::byte> secret) {
    return std::vector<std::byte>(secret.begin(), secret.end());
}

std::optional<std::vector<std::byte>> unprotect_secret(std::span<const std::byte> kept) {
    return std::vector<std::byte>(kept.begin(), kept.end());
}

}  // namespace vantlow
