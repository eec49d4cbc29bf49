// A UDP server that answers as a test tells it to.
#pragma once

#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/udp_socket.h"

namespace vantlow::test {

/// Answers on a free port of the loopback address, from a thread of its own.
class UdpServer {
  public:
    /// The datagrams to send back for one that came; may be none. Called on the server's thread.
    using Handler = std::function<std::vector<std::string>(const std::string& datagram)>;

    explicit UdpServer(Handler handler, const char* address = "127.0.0.1") : handler_(std::move(handler)) {
        if (!start_sockets()) throw std::runtime_error("no sockets");
        auto socket = UdpSocket::bind(*SocketAddress::from_literal(address, 0));
        if (!socket.ok()) throw std::runtime_error("no UDP socket: " + socket.failure().message());
        socket_ = *std::move(socket);
        port_ = socket_.local_address()->port();
        thread_ = std::thread([this] { serve(); });
    }
    ~UdpServer() {
        stop_.request();
        thread_.join();
    }
    UdpServer(const UdpServer&) = delete;
    UdpServer& operator=(const UdpServer&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    /// Everything that came, in order.
    [[nodiscard]] std::vector<std::string> received() const {
        const std::lock_guard guard(mutex_);
        return received_;
    }

  private:
    void serve() {
        std::string buffer(65536, '\0');
        while (socket_.wait(std::chrono::seconds(60), stop_) == Ready::yes) {
            SocketAddress from;
            const IoStep step = socket_.receive_from(std::as_writable_bytes(std::span(buffer)), from);
            if (step.state != IoStep::State::moved) continue;
            const std::string datagram = buffer.substr(0, step.bytes);
            {
                const std::lock_guard guard(mutex_);
                received_.push_back(datagram);
            }
            for (const std::string& answer : handler_(datagram))
                socket_.send_to(std::as_bytes(std::span(answer)), from);
        }
    }

    Handler handler_;
    UdpSocket socket_;
    std::uint16_t port_ = 0;
    StopSource stop_;
    mutable std::mutex mutex_;
    std::vector<std::string> received_;  ///< guarded by mutex_
    std::thread thread_;
};

}  // namespace vantlow::test
