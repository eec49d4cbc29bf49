#include "wire.h"

#include <sys/socket.h>
#include <unistd.h>

namespace vantlow::fuzz {
namespace {

ConnectionServices& services() {
    static ConnectionServices all;
    return all;
}

}  // namespace

Wire::Wire(std::string_view bytes) : socket_(services(), log_, stop_) {
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) == 0, "a pair of sockets can be made");
    if (!bytes.empty()) {
        const auto sent = send(ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL);
        check(sent == static_cast<ssize_t>(bytes.size()), "the system keeps the bytes");
    }
    close(ends[1]);
    socket_.adopt(TcpSocket(ends[0]), std::chrono::seconds(10));
}

}  // namespace vantlow::fuzz
