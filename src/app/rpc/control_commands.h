// `vantlow rpc ...`: the secret, and where the control API is reached.
#pragma once

#include "app/cli/command_set.h"

namespace vantlow {

/// Adds rpc secret and rpc status.
void add_control_commands(CommandSet& commands);

}  // namespace vantlow
