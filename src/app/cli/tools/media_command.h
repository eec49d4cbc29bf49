// `vantlow media ...`: what media files say of themselves.
#pragma once

#include "app/cli/command_set.h"

namespace vantlow {

void add_media_command(CommandSet& commands);

}  // namespace vantlow
