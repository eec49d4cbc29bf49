// Where a command runs: here, or in the process that owns the data folder.
#pragma once

#include "app/command_line.h"

namespace vantlow {

/// Runs a command. One on the data folder gets the folder's lock first; where another process has the folder,
/// it is waited for some seconds.
Exit run_command(CFerrywellApp& app, const Command& command);

}  // namespace vantlow
