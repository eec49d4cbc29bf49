// The entry of the program, which turns the system's words into UTF-8.
#include <string>
#include <vector>

#include "app/program.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/descriptors.h"
#include "platform/process.h"

int main(int argc, char** argv) {
    vantlow::prepare_streams();
    vantlow::raise_descriptor_limit();
    std::vector<std::string> words;
    const auto wide = vantlow::command_line(argc, argv);
    for (std::size_t i = 1; i < wide.size(); ++i) words.push_back(vantlow::to_utf8(wide[i]));
    return static_cast<int>(vantlow::run_program(words));
}
