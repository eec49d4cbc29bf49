// The messages between two starts of the program: a command line on its way to the process that owns the data
// folder, and that process's answer.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/process/ending.h"

namespace vantlow {

/// The words of another start of the program, with the folder and the input that they are meant with. Bytes
/// travel as they are.
struct HandedOver {
    std::vector<std::string> words;  ///< without the program's name
    std::string folder;              ///< the current folder there
    std::string input;               ///< standard input, where the words ask for it
};
std::string encode(const HandedOver& words);
/// Reads the message; none when the bytes are no such message.
std::optional<HandedOver> decode_words(std::string_view bytes);

/// The end of a command that ran in the other process.
struct CommandAnswer {
    Exit status = Exit::done;
    std::string output;
    std::string error;
};
std::string encode(const CommandAnswer& answer);
/// Reads the answer; none when the bytes are none.
std::optional<CommandAnswer> decode_answer(std::string_view bytes);

}  // namespace vantlow
