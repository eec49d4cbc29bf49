// A command line on its way to the process that owns the data folder, and what it answers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/process/exit_status.h"

namespace vantlow {

/// The words of another start of the program, with what they mean there. Bytes travel as they are.
struct HandedOver {
    std::vector<std::string> words;  ///< without the program's name
    std::string folder;              ///< the current folder there
    std::string input;               ///< standard input, where the words ask for it
};
std::string encode(const HandedOver& words);
/// None when the bytes are no such message.
std::optional<HandedOver> decode_words(std::string_view bytes);

struct CommandAnswer {
    Exit status = Exit::done;
    std::string output;
    std::string error;
};
std::string encode(const CommandAnswer& answer);
std::optional<CommandAnswer> decode_answer(std::string_view bytes);

}  // namespace vantlow
