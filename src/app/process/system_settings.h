// Settings that the operating system has to follow, for the current user: the dial-up connection ("Dial Up"),
// the kinds of files and links that the desktop opens with this program ("Monitor"), and its start with the
// session ("Window"/"StartWithSession").
#pragma once

#include <string_view>

#include "app/process/application.h"
#include "base/log.h"
#include "platform/file.h"

namespace vantlow {

/// Dials the connection that "Dial Up"/"Entry" names, with "Username" and "Password" of that section, unless
/// it stands; does nothing where the setting is empty. Blocks, and ends with the application's stop. Call it
/// before the first transfer.
Result dial_as_set(CFerrywellApp& app, LogSink& log);

/// Associates the kinds that the settings ask for ("Monitor": ".torrent", "ed2k", "magnet"; 1, by default 0)
/// when the resident program starts, and has the desktop start it with the session where that is wished.
/// Other kinds are left alone. Failures are complained about.
void associate_as_set(CFerrywellApp& app);

/// Follows a setting that the user has just changed: associates, or takes the association back, where the
/// setting is one of "Monitor"; likewise the start with the session, and another data folder. Does nothing
/// for others.
FileError follow_setting(CFerrywellApp& app, std::u16string_view section, std::u16string_view key);

}  // namespace vantlow
