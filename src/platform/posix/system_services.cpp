#include "platform/system_services.h"

namespace vantlow {

Result dial_up(const DialUpOperations& /*operations*/, const DialUpPlan& /*plan*/, const StopSource& /*stop*/,
               LogSink& /*log*/) {
    return {Code::unsupported, "This system has no dial-up connections."};
}

std::string_view secret_kind() noexcept {
    return "plain";
}

std::optional<std::vector<std::byte>> protect_secret(std::span<const std::byte> secret) {
    return std::vector<std::byte>(secret.begin(), secret.end());
}

std::optional<std::vector<std::byte>> unprotect_secret(std::span<const std::byte> kept) {
    return std::vector<std::byte>(kept.begin(), kept.end());
}

std::u16string system_cookies(const std::u16string& /*address*/) {
    return {};
}

}  // namespace vantlow
