// The whole program: words in, exit status out.
#pragma once

#include "app/cli/command.h"

namespace vantlow {

/// Does what the words ask for, here or in the process that owns the data folder. Returns the status to end
/// with.
Exit run_program(const Words& words);

}  // namespace vantlow
