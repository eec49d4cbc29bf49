// What a command says to the person who gave it.
#pragma once

#include <string_view>

#include "app/process/exit_status.h"

namespace vantlow {

/// A line on stdout, harmless for a terminal whatever a network or a file put into it.
void say(std::string_view line);

/// "vantlow: TEXT" on stderr, as harmless: something to know, not an error.
void tell(std::string_view text);

/// The same for an error. Gives back the status, which is what the command ends with then.
Exit complain(std::string_view text, Exit status = Exit::failed);

/// Says so where output could not be written, once; true then.
bool complain_of_lost_output();

}  // namespace vantlow
