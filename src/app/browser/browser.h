// The commands of the hand-over from a browser, and how a browser's own call of the program is known.
#pragma once

#include <string_view>

#include "app/cli/command.h"

namespace vantlow {

class CommandSet;

/// The name of the host of native messaging, which the extension asks its browser for.
inline constexpr std::u16string_view native_host_name = u"vantlow";
/// The identities of the extension: of Chromium's family it follows from the public key in its manifest.
inline constexpr std::string_view extension_origin = "chrome-extension://amfocobpfblggmedeifaniiachofngnf/";
inline constexpr std::string_view extension_id = "browser@vantlow";

void add_native_host_commands(CommandSet& commands);  ///< native-host, and what it has the owner do
void add_browser_commands(CommandSet& commands);      ///< browser install, browser remove, browser list

/// Returns the words that a command line means. A browser's manifest names a program without any words, and
/// on Windows it must be an .exe, so that no script between them could add some. So the program is called
/// with what the browser puts there: Chromium's family the extension's origin (and on Windows its window),
/// Firefox's the manifest and the extension's id. These calls are "native-host"; all others stay as they are.
Words without_browser_call(const Words& words);

}  // namespace vantlow
