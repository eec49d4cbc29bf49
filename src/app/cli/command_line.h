// The words of the command line.
#pragma once

#include <string>
#include <vector>

#include "app/cli/command_set.h"

namespace vantlow {

/// What a command line asks for: either something to run, or a text to print.
struct Command {
    CommandRun run;  ///< empty: `text` is all
    GlobalOptions global;
    Place place = Place::here;
    std::string text;          ///< help to print to stdout, or a complaint for stderr
    Exit status = Exit::done;  ///< that `text` ends with
};

/// Reads the words (UTF-8, without the program's name).
Command parse_command_line(const std::vector<std::string>& words);

}  // namespace vantlow
