// The "Monitor" settings: what the desktop opens with this program, for the current user.
#pragma once

#include <string_view>

#include "app/process/application.h"
#include "platform/file.h"

namespace vantlow {

/// Associates what the settings ask for ("Monitor": ".torrent", "ed2k", "magnet"; 1, by default 0). For the
/// desktop start: what they do not ask for is left alone. Failures are complained about.
void associate_as_set(CFerrywellApp& app);

/// After a setting was changed by the user: associates, or takes it back, where it is one of these.
FileError follow_setting(CFerrywellApp& app, std::u16string_view section, std::u16string_view key);

}  // namespace vantlow
