// The words of the command line.
#pragma once

#include <string>
#include <vector>

#include "app/get_options.h"

namespace vantlow {

/// What a command line asks for.
struct Command {
    enum class Kind { get, version, text };
    Kind kind = Kind::text;
    GlobalOptions global;
    GetOptions get;
    std::string text;          ///< for `text`: help to print to stdout, or a complaint for stderr
    Exit status = Exit::done;  ///< for `text`
};

/// Reads the words (UTF-8, without the program's name).
Command parse_command_line(const std::vector<std::string>& words);

}  // namespace vantlow
