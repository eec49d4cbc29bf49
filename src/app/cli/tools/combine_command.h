// `vantlow combine`: pieces of a film become one file.
#pragma once

#include "app/cli/command_set.h"

namespace vantlow {

void add_combine_command(CommandSet& commands);

}  // namespace vantlow
