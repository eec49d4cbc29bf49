#include "support/unix_server.h"

#include <stdexcept>

#include "base/text.h"
#include "platform/socket.h"
#include "support/process_run.h"
#include "support/scripted_server.h"

namespace vantlow::test {

UnixServer::UnixServer(const std::u16string& program, const Arguments& arguments, const Options& options) {
    const RunOptions run{.folder = options.run_folder.empty() ? folder_.path() : options.run_folder,
                         .environment = options.environment};
    // Somebody may take the free port before it does: again with another one then.
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = options.port != 0 ? options.port : closed_port();
        // Into a file: helpers that outlive a server for a while would keep a pipe open.
        std::vector<std::u16string> words{u"-c", u"exec \"$@\" >\"$0\" 2>&1", folder_.path(u"output"),
                                          program};
        for (std::u16string& word : arguments(folder_, port_)) words.push_back(std::move(word));
        program_ = std::make_unique<RunningProgram>(u"/bin/sh", words, run);
        if (wait_until_it_accepts(*program_, port_, options.host)) return;
    }
    throw std::runtime_error(to_utf8(program) + " does not start: " + output());
}

UnixServer::~UnixServer() {
    program_->terminate();
    (void)program_->wait(std::chrono::seconds(5));
}

std::string UnixServer::output() const {
    return folder_.has(u"output") ? folder_.read(u"output") : std::string();
}

bool wait_until_it_accepts(RunningProgram& program, std::uint16_t port, const std::string& host) {
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (program.is_running() && Clock::now() < end) {
        if (accepts(port, host)) return program.is_running();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

}  // namespace vantlow::test
