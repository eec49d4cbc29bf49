// A wire in front of a server that breaks where a test wants it to.
#pragma once

#include <functional>
#include <list>
#include <thread>

#include "platform/socket.h"

namespace vantlow::test {

/// What becomes of one connection: so many bytes of the server come through, then this happens.
struct Cut {
    enum class How { close, reset, stall };
    std::int64_t after = -1;  ///< -1: never
    How how = How::close;
};

/// Passes bytes both ways between its own port and the server's on the loopback address. Ended with the
/// object.
class CuttingRelay {
  public:
    /// `plan` is asked for each connection (from 0), on the accepting thread.
    CuttingRelay(std::uint16_t server_port, std::function<Cut(int)> plan);
    ~CuttingRelay();
    CuttingRelay(const CuttingRelay&) = delete;
    CuttingRelay& operator=(const CuttingRelay&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    /// Connections accepted so far.
    [[nodiscard]] int connections() const noexcept { return connections_; }

  private:
    void accept_all();
    void pass(TcpSocket client, Cut cut);

    std::uint16_t server_port_;
    std::function<Cut(int)> plan_;
    std::uint16_t port_ = 0;
    std::atomic<int> connections_{0};
    StopSource stop_;
    TcpListener listener_;
    std::list<std::thread> threads_;  ///< the acceptor's
    std::thread acceptor_;
};

}  // namespace vantlow::test
