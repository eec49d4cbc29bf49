// Where a command runs: here, or in the process that owns the data folder.
#pragma once

#include <string>
#include <vector>

#include "app/cli/command_line.h"

namespace vantlow {

/// Runs a command, which these words said. One on the data folder is handed to the process that owns the
/// folder; where that does not answer, the folder is waited for some seconds. A desktop start without a data
/// folder named goes to the instance of this user session, whichever folder that has.
Exit run_command(CFerrywellApp& app, const Command& command, const std::vector<std::string>& words);

}  // namespace vantlow
