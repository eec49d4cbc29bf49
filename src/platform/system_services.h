// Services that only some systems have: dial-up connections, encryption of secrets for one user, the cookies
// of the system's own browser component. Where one is missing its operation answers so.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"
#include "platform/stop.h"

namespace vantlow {

/// The operations of the system's dial-up library, as it exports them; null: not there.
struct DialUpOperations {
    void* enum_connections = nullptr;  ///< RasEnumConnectionsW
    void* get_params = nullptr;        ///< RasGetEntryDialParamsW
    void* dial = nullptr;              ///< RasDialW
    void* hang_up = nullptr;           ///< RasHangUpW
    void* error_text = nullptr;        ///< RasGetErrorStringW
};

/// A connection to be dialled.
struct DialUpPlan {
    std::u16string entry;  ///< the connection's name in the system's phone book
    std::u16string user;   ///< empty: as the phone book says
    std::u16string password;
};

/// Makes the connection unless it exists already, and returns once it does. Fails with `unsupported` on
/// systems without dial-up, with `transient` and the system's sentence when dialling fails, with `stopped`.
/// The connection stays when the program ends, as the system's own ones do.
Result dial_up(const DialUpOperations& operations, const DialUpPlan& plan, const StopSource& stop,
               LogSink& log);

/// The way in which secrets are kept here, as files name it: "dpapi" where the system encrypts them so that
/// only this user of this machine can read them; "plain" where only the file's mode keeps others out.
std::string_view secret_kind() noexcept;
/// Returns the bytes to be kept; none when the system refuses.
std::optional<std::vector<std::byte>> protect_secret(std::span<const std::byte> secret);
/// Returns the secret; none when it was another user's or is damaged.
std::optional<std::vector<std::byte>> unprotect_secret(std::span<const std::byte> kept);

/// The cookies that the system's own browser component keeps for an address, "name=value; name=value"; empty
/// where there are none and on systems that keep none.
std::u16string system_cookies(const std::u16string& address);

}  // namespace vantlow
