// Words of a command line, one a line: something to run, or a text that says why not.
#include "app/cli/command_line.h"

#include "base/text.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    std::vector<std::string> words;
    while (!input.empty()) words.emplace_back(take_until(input, '\n'));
    const Command command = parse_command_line(words);
    if (command.run) {
        CHECK(command.text.empty() && command.status == Exit::done);
        CHECK(to_utf16(to_utf8(command.global.data_folder)) == command.global.data_folder);
    } else {
        CHECK(!command.text.empty() && command.text.ends_with('\n'));
        CHECK(command.status == Exit::done || command.status == Exit::usage);
    }
}
