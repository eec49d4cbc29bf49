// The program's entry: words in, exit status out.
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/dispatch.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

namespace {

using namespace vantlow;

int run(const std::vector<std::string>& words) {
    const Command command = parse_command_line(words);
    if (!command.run) {
        write_stream(command.status == Exit::done ? Stream::output : Stream::error, command.text);
        return static_cast<int>(command.status);
    }
    CFerrywellApp app;
    std::string error;
    if (!app.start({command.global.settings_file, command.global.data_folder}, error)) {
        write_stream(Stream::error, "vantlow: " + error + "\n");
        return static_cast<int>(Exit::failed);
    }
    if (const Complaint complaint = apply_overrides(command.global, app.settings())) {
        write_stream(Stream::error, "vantlow: " + *complaint + "\n");
        return static_cast<int>(Exit::usage);
    }
    return static_cast<int>(run_command(app, command, words));
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words;
    const auto wide = vantlow::command_line(argc, argv);
    for (std::size_t i = 1; i < wide.size(); ++i) words.push_back(vantlow::to_utf8(wide[i]));
    return run(words);
}
