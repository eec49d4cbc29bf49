// How the resident program starts: here, in the background, or as a service (`vantlow serve`).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/cli/command_set.h"

namespace vantlow {

/// This process, which holds the lock of the data folder, becomes the resident program: it says so in a line,
/// calls `begin` and runs until it is told to quit.
Exit stay_resident(CFerrywellApp& app, const GlobalOptions& global, const std::function<void()>& begin = {});

/// The same in a process of its own, without a terminal: started with these words (of the whole command
/// line), waited for until it answers. What it has to say stands in "resident.log" in the data folder.
Exit start_in_background(CFerrywellApp& app, const GlobalOptions& global, std::vector<std::string> words);

/// "Vantlow is running ...", on stderr: which process this is, and how it is reached.
void tell_that_it_runs(CFerrywellApp& app, const GlobalOptions& global);

/// The word `serve`, as part of these words.
void add_serve_command(CommandSet& commands, const std::vector<std::string>& words);

}  // namespace vantlow
