#include "platform/udp_socket.h"

#include <climits>
#include <utility>

#include "platform/fault_hook.h"
#include "platform/net_headers.h"
#include "platform/stop.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

// The interval at which the state is looked at where the system had no event for the stop.
constexpr int blind_step_ms = 50;

SOCKET socket_of(std::intptr_t native) noexcept {
    return static_cast<SOCKET>(native);
}

Result failure(int error) {
    return {Code::transient, socket_error_text(error), error};
}

int length_of(std::size_t size) noexcept {
    return static_cast<int>(size < INT_MAX ? size : INT_MAX);
}

IoStep failed_step() noexcept {
    const int error = WSAGetLastError();
    if (error == WSAEWOULDBLOCK) return {IoStep::State::would_block, 0, 0};
    return {IoStep::State::failed, 0, error};
}

bool is_readable(SOCKET socket) noexcept {
    fd_set readable{};
    FD_SET(socket, &readable);
    timeval at_once{0, 0};
    return select(0, &readable, nullptr, nullptr, &at_once) > 0;
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
    if (native_ != invalid) closesocket(socket_of(std::exchange(native_, invalid)));
    if (event_ != 0) WSACloseEvent(reinterpret_cast<WSAEVENT>(std::exchange(event_, 0)));
}

Outcome<UdpSocket> UdpSocket::make(const SocketAddress& kind) {
    if (kind.size() == 0) return failure(WSAEAFNOSUPPORT);
    if (const int error = ask_hook(Operation::make_socket); error != 0) return failure(error);
    const int family = kind.is_ipv6() ? AF_INET6 : AF_INET;
    const SOCKET made = WSASocketW(family, SOCK_DGRAM, IPPROTO_UDP, nullptr, 0,
                                   WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    UdpSocket socket(static_cast<std::intptr_t>(made));
    if (!socket.is_open()) return failure(WSAGetLastError());
    WSAEVENT event = WSACreateEvent();
    if (event == WSA_INVALID_EVENT) return failure(WSAGetLastError());
    socket.event_ = reinterpret_cast<std::intptr_t>(event);
    // WSAEventSelect makes the socket non-blocking too.
    if (WSAEventSelect(made, event, FD_READ) != 0) return failure(WSAGetLastError());
    return socket;
}

Outcome<UdpSocket> UdpSocket::connect(const SocketAddress& to, const NetworkWay& way) {
    auto socket = make(to);
    if (!socket.ok()) return socket;
    if (const int error = way.bind(socket->native_, to.is_ipv6(), 0); error != 0) return failure(error);
    if (const int error = ask_hook(Operation::connect); error != 0) return failure(error);
    const auto* address = static_cast<const sockaddr*>(to.data());
    if (::connect(socket_of(socket->native_), address, static_cast<int>(to.size())) != 0)
        return failure(WSAGetLastError());
    return socket;
}

Outcome<UdpSocket> UdpSocket::bind(const SocketAddress& at) {
    auto socket = make(at);
    if (!socket.ok()) return socket;
    if (const int error = ask_hook(Operation::listen); error != 0) return failure(error);
    const auto* address = static_cast<const sockaddr*>(at.data());
    if (::bind(socket_of(socket->native_), address, static_cast<int>(at.size())) != 0)
        return failure(WSAGetLastError());
    return socket;
}

IoStep UdpSocket::send(std::span<const std::byte> datagram) noexcept {
    if (const int error = ask_hook(Operation::send); error != 0) return {IoStep::State::failed, 0, error};
    const int count = ::send(socket_of(native_), reinterpret_cast<const char*>(datagram.data()),
                             length_of(datagram.size()), 0);
    return count >= 0 ? IoStep{IoStep::State::moved, static_cast<std::size_t>(count), 0} : failed_step();
}

IoStep UdpSocket::receive(std::span<std::byte> into) noexcept {
    SocketAddress from;
    return receive_from(into, from);
}

IoStep UdpSocket::send_to(std::span<const std::byte> datagram, const SocketAddress& to) noexcept {
    if (const int error = ask_hook(Operation::send); error != 0) return {IoStep::State::failed, 0, error};
    const int count =
        sendto(socket_of(native_), reinterpret_cast<const char*>(datagram.data()), length_of(datagram.size()),
               0, static_cast<const sockaddr*>(to.data()), static_cast<int>(to.size()));
    return count >= 0 ? IoStep{IoStep::State::moved, static_cast<std::size_t>(count), 0} : failed_step();
}

IoStep UdpSocket::receive_from(std::span<std::byte> into, SocketAddress& from) noexcept {
    if (const int error = ask_hook(Operation::receive); error != 0) return {IoStep::State::failed, 0, error};
    sockaddr_storage storage{};
    int size = sizeof storage;
    const int count = recvfrom(socket_of(native_), reinterpret_cast<char*>(into.data()),
                               length_of(into.size()), 0, reinterpret_cast<sockaddr*>(&storage), &size);
    // The part that has no room is cut off, as on other systems.
    const bool cut_off = count < 0 && WSAGetLastError() == WSAEMSGSIZE;
    if (count < 0 && !cut_off) return failed_step();
    from = SocketAddress(&storage, static_cast<std::size_t>(size));
    return {IoStep::State::moved, cut_off ? into.size() : static_cast<std::size_t>(count), 0};
}

Ready UdpSocket::wait(std::chrono::milliseconds at_most, const StopSource& stop) noexcept {
    if (ask_hook(Operation::wait) != 0) return Ready::failed;
    const bool blind = stop.wake().native() == -1;
    WSAEVENT events[2] = {reinterpret_cast<WSAEVENT>(event_),
                          blind ? nullptr : reinterpret_cast<WSAEVENT>(stop.wake().native())};
    const Deadline deadline(at_most);
    for (;;) {
        if (stop.requested()) return Ready::stopped;
        if (is_readable(socket_of(native_))) return Ready::yes;
        const int left = deadline.left();
        if (left == 0) return Ready::timeout;
        const int step = left < 0 || left > blind_step_ms ? blind_step_ms : left;
        // An event may have been reset by a read that left a datagram behind, so the wait is cut into steps.
        if (WSAWaitForMultipleEvents(blind ? 1 : 2, events, FALSE, static_cast<DWORD>(step), FALSE) ==
            WSA_WAIT_FAILED) {
            return Ready::failed;
        }
        WSAResetEvent(events[0]);
    }
}

std::optional<SocketAddress> UdpSocket::local_address() const {
    if (ask_hook(Operation::own_address) != 0) return std::nullopt;
    sockaddr_storage storage{};
    int size = sizeof storage;
    if (getsockname(socket_of(native_), reinterpret_cast<sockaddr*>(&storage), &size) != 0)
        return std::nullopt;
    return SocketAddress(&storage, static_cast<std::size_t>(size));
}

}  // namespace vantlow
