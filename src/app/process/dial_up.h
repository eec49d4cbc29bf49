// The dial-up step in front of the first transfer.
#pragma once

#include "app/process/application.h"
#include "base/log.h"

namespace vantlow {

/// Dials the connection that "Dial Up"/"Entry" names, with "Username" and "Password" of that section, unless
/// it stands; nothing where the setting is empty. Blocking, ends with the application's stop.
Result dial_as_set(CFerrywellApp& app, LogSink& log);

}  // namespace vantlow
