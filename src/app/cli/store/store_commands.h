// The commands on the job store: each function adds the words of its file.
#pragma once

#include "app/cli/command_set.h"

namespace vantlow {

void add_add_command(CommandSet& commands);         ///< add
void add_list_commands(CommandSet& commands);       ///< list, show, log
void add_steer_commands(CommandSet& commands);      ///< start, stop, remove, move
void add_category_commands(CommandSet& commands);   ///< category ...
void add_list_file_commands(CommandSet& commands);  ///< export, import
void add_question_commands(CommandSet& commands);   ///< questions, answer
void add_settings_commands(CommandSet& commands);   ///< settings ...

void add_proxy_commands(CommandSet& commands);  ///< proxy ...

}  // namespace vantlow
