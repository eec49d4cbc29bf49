#include "support/cutting_relay.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace vantlow::test {
namespace {

constexpr std::chrono::milliseconds no_end{-1};

bool write_all(TcpSocket& to, std::span<const std::byte> bytes, const StopSource& stop) {
    while (!bytes.empty()) {
        const IoStep step = to.write(bytes);
        if (step.state == IoStep::State::moved) {
            bytes = bytes.subspan(step.bytes);
        } else if (step.state != IoStep::State::would_block ||
                   wait_socket(to, Interest::write, no_end, stop) != Ready::yes) {
            return false;
        }
    }
    return true;
}

}  // namespace

CuttingRelay::CuttingRelay(std::uint16_t server_port, std::function<Cut(int)> plan)
    : server_port_(server_port), plan_(std::move(plan)) {
    auto listener = TcpListener::listen(*SocketAddress::from_literal("127.0.0.1", 0));
    if (!listener) throw std::runtime_error("the relay cannot listen");
    listener_ = *std::move(listener);
    port_ = listener_.address()->port();
    acceptor_ = std::thread([this] { accept_all(); });
}

CuttingRelay::~CuttingRelay() {
    stop_.request();
    acceptor_.join();
    for (std::thread& thread : threads_) thread.join();
}

void CuttingRelay::accept_all() {
    while (!stop_.requested()) {
        auto client = listener_.accept(no_end, stop_);
        if (!client) continue;
        threads_.emplace_back([this, socket = *std::move(client), cut = plan_(connections_++)]() mutable {
            pass(std::move(socket), cut);
        });
    }
}

void CuttingRelay::pass(TcpSocket client, Cut cut) {
    auto begun = TcpSocket::begin_connect(*SocketAddress::from_literal("127.0.0.1", server_port_));
    if (!begun || wait_socket(*begun, Interest::write, no_end, stop_) != Ready::yes) return;
    TcpSocket server = *std::move(begun);
    std::vector<std::byte> buffer(16384);
    std::int64_t passed = 0;
    while (cut.after < 0 || passed < cut.after) {
        SocketWait waits[2] = {{&client, Interest::read, false}, {&server, Interest::read, false}};
        if (wait_sockets(waits, no_end, stop_) != Ready::yes) return;
        const bool from_server = waits[1].ready;
        const std::size_t most =
            from_server && cut.after >= 0 ? static_cast<std::size_t>(cut.after - passed) : buffer.size();
        const IoStep step =
            (from_server ? server : client).read(std::span(buffer).first(std::min(most, buffer.size())));
        if (step.state == IoStep::State::would_block) continue;
        if (step.state != IoStep::State::moved) return;
        if (!write_all(from_server ? client : server, std::span(buffer).first(step.bytes), stop_)) return;
        if (from_server) passed += static_cast<std::int64_t>(step.bytes);
    }
    if (cut.how == Cut::How::reset) client.close_with_reset();
    if (cut.how == Cut::How::stall) stop_.wait_for(std::chrono::seconds(60));
}

}  // namespace vantlow::test
