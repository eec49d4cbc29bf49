// The entry of the program with a window, which turns the system's words into UTF-8.
#include <string>
#include <vector>

#include "app/program.h"
#include "app/window/window.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

int main(int argc, char** argv) {
    vantlow::prepare_streams();
    std::vector<std::string> words;
    const auto wide = vantlow::command_line(argc, argv);
    for (std::size_t i = 1; i < wide.size(); ++i) words.push_back(vantlow::to_utf8(wide[i]));
    const auto desktop = vantlow::make_desktop();
    return static_cast<int>(vantlow::run_program(words, desktop.get()));
}
