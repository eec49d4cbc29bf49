#include "platform/udp_socket.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/fault_hook.h"
#include "platform/net_headers.h"
#include "platform/stop.h"

namespace vantlow {
namespace {

// The interval at which a stop is looked for where the system had no event for it.
constexpr int blind_step_ms = 20;

int descriptor(std::intptr_t native) noexcept {
    return static_cast<int>(native);
}

Result failure(int error) {
    return {Code::transient, socket_error_text(error), error};
}

IoStep step_of(ssize_t count) noexcept {
    if (count >= 0) return {IoStep::State::moved, static_cast<std::size_t>(count), 0};
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {IoStep::State::would_block, 0, 0};
    return {IoStep::State::failed, 0, errno};
}

}  // namespace

UdpSocket::UdpSocket(UdpSocket&& other) noexcept
    : native_(std::exchange(other.native_, invalid)), event_(std::exchange(other.event_, 0)) {}

UdpSocket& UdpSocket::operator=(UdpSocket&& other) noexcept {
    if (this != &other) {
        close();
        native_ = std::exchange(other.native_, invalid);
        event_ = std::exchange(other.event_, 0);
    }
    return *this;
}

UdpSocket::~UdpSocket() {
    close();
}

void UdpSocket::close() noexcept {
    if (native_ != invalid) ::close(descriptor(std::exchange(native_, invalid)));
}

Outcome<UdpSocket> UdpSocket::make(const SocketAddress& kind) {
    if (kind.size() == 0) return failure(EAFNOSUPPORT);
    if (const int error = ask_hook(Operation::make_socket); error != 0) return failure(error);
    const int family = kind.is_ipv6() ? AF_INET6 : AF_INET;
    UdpSocket socket(::socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_UDP));
    if (!socket.is_open()) return failure(errno);
    return socket;
}

Outcome<UdpSocket> UdpSocket::connect(const SocketAddress& to, const NetworkWay& way) {
    auto socket = make(to);
    if (!socket.ok()) return socket;
    if (const int error = way.bind(socket->native_, to.is_ipv6(), 0); error != 0) return failure(error);
    if (const int error = ask_hook(Operation::connect); error != 0) return failure(error);
    const auto* address = static_cast<const sockaddr*>(to.data());
    if (::connect(descriptor(socket->native_), address, static_cast<socklen_t>(to.size())) != 0)
        return failure(errno);
    return socket;
}

Outcome<UdpSocket> UdpSocket::bind(const SocketAddress& at) {
    auto socket = make(at);
    if (!socket.ok()) return socket;
    if (const int error = ask_hook(Operation::listen); error != 0) return failure(error);
    const auto* address = static_cast<const sockaddr*>(at.data());
    if (::bind(descriptor(socket->native_), address, static_cast<socklen_t>(at.size())) != 0)
        return failure(errno);
    return socket;
}

IoStep UdpSocket::send(std::span<const std::byte> datagram) noexcept {
    if (const int error = ask_hook(Operation::send); error != 0) return {IoStep::State::failed, 0, error};
    for (;;) {
        const ssize_t count = ::send(descriptor(native_), datagram.data(), datagram.size(), MSG_NOSIGNAL);
        if (count >= 0 || errno != EINTR) return step_of(count);
    }
}

IoStep UdpSocket::receive(std::span<std::byte> into) noexcept {
    if (const int error = ask_hook(Operation::receive); error != 0) return {IoStep::State::failed, 0, error};
    for (;;) {
        const ssize_t count = ::recv(descriptor(native_), into.data(), into.size(), 0);
        if (count >= 0 || errno != EINTR) return step_of(count);
    }
}

IoStep UdpSocket::send_to(std::span<const std::byte> datagram, const SocketAddress& to) noexcept {
    if (const int error = ask_hook(Operation::send); error != 0) return {IoStep::State::failed, 0, error};
    const auto* address = static_cast<const sockaddr*>(to.data());
    for (;;) {
        const ssize_t count = ::sendto(descriptor(native_), datagram.data(), datagram.size(), MSG_NOSIGNAL,
                                       address, static_cast<socklen_t>(to.size()));
        if (count >= 0 || errno != EINTR) return step_of(count);
    }
}

IoStep UdpSocket::receive_from(std::span<std::byte> into, SocketAddress& from) noexcept {
    if (const int error = ask_hook(Operation::receive); error != 0) return {IoStep::State::failed, 0, error};
    for (;;) {
        sockaddr_storage storage{};
        socklen_t size = sizeof storage;
        const ssize_t count = ::recvfrom(descriptor(native_), into.data(), into.size(), 0,
                                         reinterpret_cast<sockaddr*>(&storage), &size);
        if (count >= 0) from = SocketAddress(&storage, size);
        if (count >= 0 || errno != EINTR) return step_of(count);
    }
}

Ready UdpSocket::wait(std::chrono::milliseconds at_most, const StopSource& stop) noexcept {
    if (ask_hook(Operation::wait) != 0) return Ready::failed;
    const bool blind = stop.wake().native() < 0;
    const Deadline deadline(at_most);
    for (;;) {
        pollfd entries[2] = {{descriptor(native_), POLLIN, 0}, {descriptor(stop.wake().native()), POLLIN, 0}};
        const int left = deadline.left();
        const bool step = blind && (left < 0 || left > blind_step_ms);
        const int count = ::poll(entries, 2, step ? blind_step_ms : left);
        if (count < 0 && errno != EINTR) return Ready::failed;
        if (stop.requested()) return Ready::stopped;
        if (count > 0 && entries[0].revents != 0) return Ready::yes;
        if (deadline.left() == 0) return Ready::timeout;
    }
}

std::optional<SocketAddress> UdpSocket::local_address() const {
    if (ask_hook(Operation::own_address) != 0) return std::nullopt;
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    if (::getsockname(descriptor(native_), reinterpret_cast<sockaddr*>(&storage), &size) != 0)
        return std::nullopt;
    return SocketAddress(&storage, size);
}

}  // namespace vantlow
