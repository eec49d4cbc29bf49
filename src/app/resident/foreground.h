// Running jobs of the store in this terminal.
#pragma once

#include <vector>

#include "app/cli/store/store_command.h"

namespace vantlow {

/// Runs the jobs until all of them have ended, or Ctrl-C; shows their progress as `get` does. With `all` jobs
/// that are added meanwhile are run too.
Exit run_in_foreground(StoreCommand& command, const std::vector<Guid>& jobs, bool all);

}  // namespace vantlow
