// `vantlow rpc ...`, and the options of a start that say how the control API is reached in this run.
#pragma once

#include "app/cli/command_set.h"

namespace vantlow {

/// Adds rpc secret and rpc status.
void add_control_commands(CommandSet& commands);

}  // namespace vantlow
