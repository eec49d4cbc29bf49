#include "support/shell_server.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include "platform/socket.h"
#include "support/scripted_server.h"

namespace vantlow::test {
ShellServer::ShellServer(const TempFolder& folder,
                         const std::function<std::string(std::uint16_t port)>& command) {
    std::string words;
    // Somebody may take the free port before it does: again with another one then.
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = closed_port();
        words = command(port_);
        program_ = std::make_unique<ShellProgram>(folder, words);
        const auto end = Clock::now() + std::chrono::seconds(4);
        while (Clock::now() < end) {
            if (accepts(port_)) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    throw std::runtime_error("does not start: " + words);
}

}  // namespace vantlow::test
