// The whole program: words in, exit status out.
#pragma once

#include "app/cli/command.h"

namespace vantlow {

class Desktop;

/// Does what the words ask for, here or in the process that owns the data folder. Returns the status to end
/// with. `desktop`: the window of this program; null where it has none.
Exit run_program(const Words& words, Desktop* desktop = nullptr);

}  // namespace vantlow
