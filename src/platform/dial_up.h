// Dial-up connections of the system.
#pragma once

#include <string>

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

/// What is dialled.
struct DialUpPlan {
    std::u16string entry;  ///< the connection's name in the system's phone book
    std::u16string user;   ///< empty: as the phone book says
    std::u16string password;
};

/// Makes the connection unless it stands already; returns when it does. `unsupported` on systems without
/// dial-up, `transient` with the system's sentence when it fails, `stopped`. The connection stays when the
/// program ends, as the system's own ones do.
Result dial_up(const DialUpOperations& operations, const DialUpPlan& plan, const StopSource& stop,
               LogSink& log);

}  // namespace vantlow
