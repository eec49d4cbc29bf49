// The whole program: words in, exit status out.
#pragma once

#include <string>
#include <vector>

#include "app/process/exit_status.h"

namespace vantlow {

/// Does what the words (UTF-8, without the program's name) ask for.
Exit run_program(const std::vector<std::string>& words);

}  // namespace vantlow
