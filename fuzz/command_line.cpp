// Words of a command line, one a line: something to run, or a text that says why not. The commands are those
// that need no resident program.
#include "app/cli/command_set.h"
#include "app/cli/get/get_run.h"
#include "app/cli/store/store_command.h"
#include "app/cli/tools/tools.h"
#include "base/text.h"
#include "fuzz.h"

namespace {

void add_commands(vantlow::CommandSet& commands) {
    using namespace vantlow;
    for (const auto add :
         {add_get_command, add_link_commands, add_add_command, add_list_commands, add_steer_commands,
          add_question_commands, add_category_commands, add_list_file_commands, add_settings_commands,
          add_torrent_commands, add_combine_command, add_media_command, add_proxy_commands}) {
        add(commands);
    }
}

vantlow::Command read(const vantlow::Words& words) {
    return vantlow::read_command_line(words, add_commands, read);
}

}  // namespace

void vantlow::fuzz::run(std::string_view input) {
    Words words;
    while (!input.empty()) words.emplace_back(take_until(input, '\n'));
    const Command command = read(words);
    if (command.run) {
        CHECK(command.text.empty() && command.status == Exit::done);
        CHECK(to_utf16(to_utf8(command.global.data_folder)) == command.global.data_folder);
    } else {
        CHECK(!command.text.empty() && command.text.ends_with('\n'));
        CHECK(command.status == Exit::done || command.status == Exit::usage);
    }
}
