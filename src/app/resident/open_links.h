// The desktop start, and the end of the instance that it made.
#pragma once

#include <string>
#include <vector>

#include "app/cli/command_set.h"

namespace vantlow {

/// What is wrong with the words of a desktop start: one that is neither a link nor a file is a mistyped
/// command.
Complaint check_desktop_links(const std::vector<std::string>& links);

/// In the running instance: files the links' jobs and starts them. Otherwise this process, which holds the
/// lock of the data folder, becomes the instance: it runs until it is told to quit, whatever becomes of its
/// terminal. Where a terminal takes its programs along, another process becomes it, with the same words.
Exit run_desktop(CFerrywellApp& app, const GlobalOptions& global, const std::vector<std::string>& links,
                 const std::vector<std::string>& words);

/// The word `quit`.
void add_quit_command(CommandSet& commands);

}  // namespace vantlow
