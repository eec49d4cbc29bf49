// `vantlow link`, `vantlow ed2k make` and `vantlow metafile`: what links and metafiles say.
#pragma once

#include "app/cli/command_set.h"

namespace vantlow {

void add_link_commands(CommandSet& commands);

}  // namespace vantlow
