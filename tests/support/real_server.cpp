#include "support/real_server.h"

#include <stdexcept>

#include "base/text.h"
#include "platform/file.h"
#include "platform/socket.h"
#include "support/process_run.h"
#include "support/scripted_server.h"

namespace vantlow::test {
std::u16string installed_program(std::u16string_view name) {
    if (path_separator() != u'/') return {};
    for (const char16_t* folder : {u"/usr/sbin", u"/usr/bin", u"/usr/local/sbin", u"/usr/local/bin"}) {
        const std::u16string path = join_path(folder, name);
        if (path_kind(path) == PathKind::file) return path;
    }
    return {};
}

int run_installed(const std::u16string& program, const std::vector<std::u16string>& arguments) {
    return run_program(program, arguments).status;
}

RealServer::RealServer(const std::u16string& program, const Arguments& arguments, std::uint16_t port) {
    // Somebody may take the free port before it does: again with another one then.
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = port != 0 ? port : closed_port();
        // Into a file: helpers that outlive a server for a while would keep a pipe open.
        std::vector<std::u16string> words{u"-c", u"exec \"$@\" >\"$0\" 2>&1", folder_.path(u"output"),
                                          program};
        for (std::u16string& word : arguments(folder_, port_)) words.push_back(std::move(word));
        program_ = std::make_unique<RunningProgram>(u"/bin/sh", words);
        if (wait_until_it_accepts()) return;
    }
    throw std::runtime_error(to_utf8(program) + " does not start: " + folder_.read(u"output"));
}

RealServer::~RealServer() {
    program_->terminate();
    (void)program_->wait(std::chrono::seconds(5));
}

bool RealServer::wait_until_it_accepts() {
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (program_->is_running() && Clock::now() < end) {
        if (accepts(port_)) return program_->is_running();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

}  // namespace vantlow::test
