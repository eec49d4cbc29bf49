// The program's entry: words in, exit status out.
#include <string>
#include <vector>

#include "app/application.h"
#include "app/command_line.h"
#include "app/get_command.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

namespace {

using namespace vantlow;

std::string version_text(const CFerrywellApp& app) {
    std::string text = "Vantlow " + to_utf8(app.version()) + "\n" + std::string(platform_name()) + "\n";
    for (const auto& [library, loaded] : loaded_libraries(app.libraries())) {
        text += library + ": " + (loaded ? "loaded" : "not found") + "\n";
    }
    return text;
}

int run(const std::vector<std::string>& words) {
    const Command command = parse_command_line(words);
    if (command.kind == Command::Kind::text) {
        write_stream(command.status == Exit::done ? Stream::output : Stream::error, command.text);
        return static_cast<int>(command.status);
    }
    CFerrywellApp app;
    std::string error;
    if (!app.start({command.global.settings_file, command.global.data_folder}, error)) {
        write_stream(Stream::error, "vantlow: " + error + "\n");
        return static_cast<int>(Exit::failed);
    }
    if (command.kind == Command::Kind::version) {
        write_stream(Stream::output, version_text(app));
        return 0;
    }
    return static_cast<int>(run_get(app, command.global, command.get));
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words;
    const auto wide = vantlow::command_line(argc, argv);
    for (std::size_t i = 1; i < wide.size(); ++i) words.push_back(vantlow::to_utf8(wide[i]));
    return run(words);
}
