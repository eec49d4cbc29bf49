#include "platform/socket.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "platform/fault_hook.h"
#include "platform/local_text.h"
#include "platform/net_headers.h"
#include "platform/network_way.h"
#include "platform/stop.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

constexpr std::size_t most_sockets = 16;
// The interval at which the state is looked at where no event may come: a socket reports room only after a
// write found none, and the system may have had no event for the stop.
constexpr int blind_step_ms = 50;

SOCKET socket_of(std::intptr_t native) noexcept {
    return static_cast<SOCKET>(native);
}

Result failure(int error) {
    return {Code::transient, socket_error_text(error), error};
}

IoStep failed_step() noexcept {
    const int error = WSAGetLastError();
    if (error == WSAEWOULDBLOCK) return {IoStep::State::would_block, 0, 0};
    return {IoStep::State::failed, 0, error};
}

int length_of(std::size_t size) noexcept {
    return static_cast<int>(std::min<std::size_t>(size, INT_MAX));
}

// Options are wishes: without one a connection is slower or a dead peer is noticed later, and nothing is
// wrong. So a failure is not reported, and no hook is asked.
void set_option(std::intptr_t native, int level, int name, int value) noexcept {
    setsockopt(socket_of(native), level, name, reinterpret_cast<const char*>(&value), sizeof value);
}

bool make_non_blocking(SOCKET socket) noexcept {
    u_long on = 1;
    return ioctlsocket(socket, static_cast<long>(FIONBIO), &on) == 0;
}

template <class Query>
std::optional<SocketAddress> ask_address(std::intptr_t native, Query query) {
    if (ask_hook(Operation::own_address) != 0) return std::nullopt;
    sockaddr_storage storage{};
    int size = sizeof storage;
    if (query(socket_of(native), reinterpret_cast<sockaddr*>(&storage), &size) != 0) return std::nullopt;
    const SocketAddress address(&storage, static_cast<std::size_t>(size));
    return address.size() == 0 ? std::nullopt : std::optional(address);
}

bool is_passing_accept_error(int error) noexcept {
    return error == WSAEWOULDBLOCK || error == WSAECONNRESET;
}

// The states that select sees now; events only say that something changed.
struct States {
    fd_set readable{};
    fd_set writable{};
    fd_set broken{};
};

}  // namespace

/// The work inside a TcpSocket.
struct SocketWaiter {
    static SOCKET native(const TcpSocket& socket) noexcept { return socket_of(socket.native_); }
    static WSAEVENT event(const TcpSocket& socket) noexcept {
        return reinterpret_cast<WSAEVENT>(socket.event_);
    }

    /// A stream socket of the address's kind, ready for use.
    static TcpSocket make(const SocketAddress& kind) noexcept {
        if (const int error = ask_hook(Operation::make_socket); error != 0) {
            WSASetLastError(error);
            return TcpSocket();
        }
        const DWORD flags = WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT;
        const int family = kind.is_ipv6() ? AF_INET6 : AF_INET;
        const SOCKET made = WSASocketW(family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, flags);
        TcpSocket socket(static_cast<std::intptr_t>(made));
        if (socket.is_open() && !make_non_blocking(made)) socket.close();
        return socket;
    }

    static bool watch(TcpSocket& socket) noexcept;
    static bool take_events(TcpSocket& socket, Interest interest) noexcept;
    static IoStep end_step(TcpSocket& socket) noexcept;
    static bool look(std::span<SocketWait> sockets) noexcept;
    static Ready wait(std::span<SocketWait> sockets, std::chrono::milliseconds at_most,
                      const StopSource& stop);
};

std::string socket_error_text(int system_error) {
    return system_text(system_error);
}

SocketFault socket_fault(int system_error) noexcept {
    switch (system_error) {
        case 0:
            return SocketFault::none;
        case WSAECONNREFUSED:
            return SocketFault::refused;
        case WSAECONNRESET:
        case WSAECONNABORTED:
        case WSAENETRESET:
        case WSAESHUTDOWN:
            return SocketFault::reset;
        case WSAENETUNREACH:
        case WSAEHOSTUNREACH:
        case WSAENETDOWN:
        case WSAEHOSTDOWN:
        case WSAEAFNOSUPPORT:
        case WSAEADDRNOTAVAIL:
            return SocketFault::unreachable;
        case WSAETIMEDOUT:
            return SocketFault::timed_out;
        case WSAEMFILE:
        case WSAENOBUFS:
            return SocketFault::no_descriptors;
        default:
            return SocketFault::other;
    }
}

bool start_sockets() noexcept {
    static const bool started = [] {
        WSADATA data{};
        return WSAStartup(MAKEWORD(1, 1), &data) == 0;
    }();
    return started;
}

TcpSocket::TcpSocket(std::intptr_t native) noexcept : native_(native) {}

TcpSocket::TcpSocket(TcpSocket&& other) noexcept
    : native_(std::exchange(other.native_, invalid)),
      event_(std::exchange(other.event_, 0)),
      event_error_(std::exchange(other.event_error_, 0)) {}

TcpSocket& TcpSocket::operator=(TcpSocket&& other) noexcept {
    if (this != &other) {
        close();
        native_ = std::exchange(other.native_, invalid);
        event_ = std::exchange(other.event_, 0);
        event_error_ = std::exchange(other.event_error_, 0);
    }
    return *this;
}

TcpSocket::~TcpSocket() {
    close();
}

void TcpSocket::close() noexcept {
    if (native_ != invalid) closesocket(socket_of(std::exchange(native_, invalid)));
    if (event_ != 0) WSACloseEvent(reinterpret_cast<WSAEVENT>(std::exchange(event_, 0)));
    event_error_ = 0;
}

void TcpSocket::close_with_reset() noexcept {
    if (native_ == invalid) return;
    const linger at_once{1, 0};
    setsockopt(socket_of(native_), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
               sizeof at_once);
    close();
}

Outcome<TcpSocket> TcpSocket::begin_connect(const SocketAddress& to) {
    return begin_connect(to, NetworkWay());
}

Outcome<TcpSocket> TcpSocket::begin_connect(const SocketAddress& to, const NetworkWay& way) {
    if (to.size() == 0) return failure(WSAEAFNOSUPPORT);
    TcpSocket socket = SocketWaiter::make(to);
    if (!socket.is_open()) return failure(WSAGetLastError());
    socket.set_no_delay();
    if (const int error = way.bind(socket.native_, to.is_ipv6(), 0); error != 0) return failure(error);
    if (const int error = ask_hook(Operation::connect); error != 0) return failure(error);
    const auto* address = static_cast<const sockaddr*>(to.data());
    if (connect(socket_of(socket.native_), address, static_cast<int>(to.size())) != 0) {
        if (const int error = WSAGetLastError(); error != WSAEWOULDBLOCK) return failure(error);
    }
    return socket;
}

int TcpSocket::connect_error() const noexcept {
    if (event_error_ != 0) return event_error_;
    int error = ask_hook(Operation::connect_end);
    if (error != 0) return error;
    int size = sizeof error;
    const int result =
        getsockopt(socket_of(native_), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
    return result == 0 ? error : WSAGetLastError();
}

IoStep TcpSocket::read(std::span<std::byte> into) noexcept {
    if (into.empty()) return {IoStep::State::moved, 0, 0};
    if (const int error = ask_hook(Operation::receive); error != 0) return {IoStep::State::failed, 0, error};
    const int count =
        recv(socket_of(native_), reinterpret_cast<char*>(into.data()), length_of(into.size()), 0);
    if (count > 0) return {IoStep::State::moved, static_cast<std::size_t>(count), 0};
    return count == 0 ? SocketWaiter::end_step(*this) : failed_step();
}

IoStep TcpSocket::write(std::span<const std::byte> from) noexcept {
    if (const int error = ask_hook(Operation::send); error != 0) return {IoStep::State::failed, 0, error};
    const auto* bytes = reinterpret_cast<const char*>(from.data());
    const int count = send(socket_of(native_), bytes, length_of(from.size()), 0);
    if (count >= 0) return {IoStep::State::moved, static_cast<std::size_t>(count), 0};
    return failed_step();
}

bool TcpSocket::is_quiet() noexcept {
    if (ask_hook(Operation::receive) != 0) return false;
    char byte = 0;
    const int count = recv(socket_of(native_), &byte, 1, MSG_PEEK);
    return count < 0 && WSAGetLastError() == WSAEWOULDBLOCK;
}

void TcpSocket::set_no_delay() noexcept {
    set_option(native_, IPPROTO_TCP, TCP_NODELAY, 1);
}

void TcpSocket::set_receive_buffer(std::size_t bytes) noexcept {
    if (bytes != 0) set_option(native_, SOL_SOCKET, SO_RCVBUF, length_of(bytes));
}

std::optional<SocketAddress> TcpSocket::local_address() const {
    return ask_address(native_, getsockname);
}
std::optional<SocketAddress> TcpSocket::peer_address() const {
    return ask_address(native_, getpeername);
}

// Gives the socket its event, unless it has one.
bool SocketWaiter::watch(TcpSocket& socket) noexcept {
    if (socket.event_ != 0) return true;
    WSAEVENT made = WSACreateEvent();
    if (made == WSA_INVALID_EVENT) return false;
    socket.event_ = reinterpret_cast<std::intptr_t>(made);
    const long events = FD_READ | FD_WRITE | FD_ACCEPT | FD_CONNECT | FD_CLOSE;
    return WSAEventSelect(native(socket), made, events) == 0;
}

// Takes the events off the socket and resets its event, so that the next change sets it again. True when one
// of them ends the wait by itself.
bool SocketWaiter::take_events(TcpSocket& socket, Interest interest) noexcept {
    WSANETWORKEVENTS seen{};
    if (WSAEnumNetworkEvents(native(socket), event(socket), &seen) != 0)
        return true;  // broken: the next step reports it
    const bool connected = (seen.lNetworkEvents & FD_CONNECT) != 0;
    if (connected && seen.iErrorCode[FD_CONNECT_BIT] != 0)
        socket.event_error_ = seen.iErrorCode[FD_CONNECT_BIT];
    const bool closed = (seen.lNetworkEvents & FD_CLOSE) != 0;
    return closed || (interest == Interest::write && socket.event_error_ != 0);
}

// The end of the peer's bytes, or a reset, which must not pass for it: Wine reports a reset only to the event
// or to the next write. A write of nothing sends nothing.
IoStep SocketWaiter::end_step(TcpSocket& socket) noexcept {
    if (socket.event_ != 0) take_events(socket, Interest::read);
    if (socket.event_error_ == 0 && send(native(socket), "", 0, 0) == SOCKET_ERROR) {
        const int error = WSAGetLastError();
        if (error != WSAEWOULDBLOCK) socket.event_error_ = error;
    }
    if (socket.event_error_ != 0) return {IoStep::State::failed, 0, socket.event_error_};
    return {IoStep::State::closed, 0, 0};
}

// Marks the sockets that are ready now; false when the system cannot say.
bool SocketWaiter::look(std::span<SocketWait> sockets) noexcept {
    States states;
    int watched = 0;
    for (const SocketWait& wait : sockets) {
        if (wait.ready) continue;
        ++watched;
        if (wait.interest == Interest::read) {
            FD_SET(native(*wait.socket), &states.readable);
        } else {
            FD_SET(native(*wait.socket), &states.writable);
            FD_SET(native(*wait.socket), &states.broken);  // a connection that was not made
        }
    }
    if (watched == 0) return true;
    timeval at_once{0, 0};
    if (select(0, &states.readable, &states.writable, &states.broken, &at_once) == SOCKET_ERROR) return false;
    for (SocketWait& wait : sockets) {
        if (wait.ready) continue;
        const SOCKET socket = native(*wait.socket);
        wait.ready = FD_ISSET(socket, &states.readable) != 0 || FD_ISSET(socket, &states.writable) != 0 ||
                     FD_ISSET(socket, &states.broken) != 0;
    }
    return true;
}

Ready SocketWaiter::wait(std::span<SocketWait> sockets, std::chrono::milliseconds at_most,
                         const StopSource& stop) {
    if (sockets.size() > most_sockets || ask_hook(Operation::wait) != 0) return Ready::failed;
    const bool has_stop_event = stop.wake().native() != -1;
    bool blind = !has_stop_event;
    WSAEVENT events[most_sockets + 1];
    DWORD count = 0;
    if (has_stop_event) events[count++] = reinterpret_cast<WSAEVENT>(stop.wake().native());
    for (SocketWait& wait : sockets) {
        wait.ready = wait.socket == nullptr || !wait.socket->is_open();
        if (wait.ready) continue;
        if (!watch(*wait.socket)) return Ready::failed;
        events[count++] = event(*wait.socket);
        blind = blind || wait.interest == Interest::write;
    }
    const Deadline deadline(at_most);
    for (;;) {
        if (stop.requested()) return Ready::stopped;
        for (SocketWait& wait : sockets) {
            if (!wait.ready) wait.ready = take_events(*wait.socket, wait.interest);
        }
        if (!look(sockets)) return Ready::failed;
        if (std::any_of(sockets.begin(), sockets.end(), [](const SocketWait& wait) { return wait.ready; })) {
            return Ready::yes;
        }
        const int left = deadline.left();
        if (left == 0) return Ready::timeout;
        const int step = blind && (left < 0 || left > blind_step_ms) ? blind_step_ms : left;
        const DWORD time = step < 0 ? WSA_INFINITE : static_cast<DWORD>(step);
        if (count == 0) {
            Sleep(time);
        } else if (WSAWaitForMultipleEvents(count, events, FALSE, time, FALSE) == WSA_WAIT_FAILED) {
            return Ready::failed;
        }
    }
}

Ready wait_sockets(std::span<SocketWait> sockets, std::chrono::milliseconds at_most, const StopSource& stop) {
    return SocketWaiter::wait(sockets, at_most, stop);
}

Ready wait_socket(TcpSocket& socket, Interest interest, std::chrono::milliseconds at_most,
                  const StopSource& stop) {
    SocketWait one{&socket, interest, false};
    return SocketWaiter::wait({&one, 1}, at_most, stop);
}

Outcome<TcpListener> TcpListener::listen(const SocketAddress& at, int backlog) {
    if (at.size() == 0) return failure(WSAEAFNOSUPPORT);
    TcpListener listener;
    listener.socket_ = SocketWaiter::make(at);
    if (!listener.socket_.is_open()) return failure(WSAGetLastError());
    if (const int error = ask_hook(Operation::listen); error != 0) return failure(error);
    const SOCKET native = SocketWaiter::native(listener.socket_);
    // Nobody else may listen at the same port, which the system would allow.
    set_option(static_cast<std::intptr_t>(native), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
    const auto* address = static_cast<const sockaddr*>(at.data());
    if (bind(native, address, static_cast<int>(at.size())) != 0) return failure(WSAGetLastError());
    if (::listen(native, backlog) != 0) return failure(WSAGetLastError());
    return listener;
}

Outcome<TcpSocket> TcpListener::accept(std::chrono::milliseconds at_most, const StopSource& stop) {
    const Deadline deadline(at_most);
    for (;;) {
        const Ready ready =
            wait_socket(socket_, Interest::read, std::chrono::milliseconds(deadline.left()), stop);
        if (ready == Ready::stopped) return Code::stopped;
        if (ready == Ready::timeout) return Result(Code::transient, "Nobody connected.");
        if (ready == Ready::failed || !socket_.is_open()) return failure(WSAENOTSOCK);
        if (const int error = ask_hook(Operation::accept); error != 0) return failure(error);
        const SOCKET accepted = ::accept(SocketWaiter::native(socket_), nullptr, nullptr);
        if (accepted == INVALID_SOCKET) {
            if (const int error = WSAGetLastError(); !is_passing_accept_error(error)) return failure(error);
            continue;
        }
        TcpSocket socket(static_cast<std::intptr_t>(accepted));
        // It would set the listener's event.
        const bool own = WSAEventSelect(accepted, nullptr, 0) == 0 && make_non_blocking(accepted);
        if (!own) return failure(WSAGetLastError());
        SetHandleInformation(reinterpret_cast<HANDLE>(accepted), HANDLE_FLAG_INHERIT, 0);
        socket.set_no_delay();
        return socket;
    }
}

}  // namespace vantlow
