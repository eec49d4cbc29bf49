#include "platform/socket.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/fault_hook.h"
#include "platform/local_text.h"
#include "platform/net_headers.h"
#include "platform/network_way.h"
#include "platform/stop.h"

namespace vantlow {
namespace {

constexpr std::size_t most_sockets = 16;
// The interval at which a stop is looked for where the system had no event for it.
constexpr int blind_step_ms = 20;

int descriptor(std::intptr_t native) noexcept {
    return static_cast<int>(native);
}

Result failure(int error) {
    return {Code::transient, socket_error_text(error), error};
}

IoStep failed_step(int error) noexcept {
    if (error == EAGAIN || error == EWOULDBLOCK) return {IoStep::State::would_block, 0, 0};
    return {IoStep::State::failed, 0, error};
}

// Options are wishes: without one a connection is slower or a dead peer is noticed later, and nothing is
// wrong. So a failure is not reported, and no hook is asked.
void set_option(std::intptr_t native, int level, int name, int value) noexcept {
    ::setsockopt(descriptor(native), level, name, &value, sizeof value);
}

template <class Query>
std::optional<SocketAddress> ask_address(std::intptr_t native, Query query) {
    if (ask_hook(Operation::own_address) != 0) return std::nullopt;
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    if (query(descriptor(native), reinterpret_cast<sockaddr*>(&storage), &size) != 0) return std::nullopt;
    const SocketAddress address(&storage, size);
    return address.size() == 0 ? std::nullopt : std::optional(address);
}

bool is_passing_accept_error(int error) noexcept {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR || error == ECONNABORTED ||
           error == EPROTO;
}

}  // namespace

struct SocketWaiter {
    static std::intptr_t native(const TcpSocket& socket) noexcept { return socket.native_; }
    /// A stream socket of the address's kind, ready for use.
    static TcpSocket make(const SocketAddress& kind) noexcept {
        if (const int error = ask_hook(Operation::make_socket); error != 0) {
            errno = error;
            return TcpSocket();
        }
        const int family = kind.is_ipv6() ? AF_INET6 : AF_INET;
        return TcpSocket(::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
    }
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
        case ECONNREFUSED:
            return SocketFault::refused;
        case ECONNRESET:
        case ECONNABORTED:
        case EPIPE:
            return SocketFault::reset;
        case ENETUNREACH:
        case EHOSTUNREACH:
        case ENETDOWN:
        case EHOSTDOWN:
        case EAFNOSUPPORT:
        case EADDRNOTAVAIL:
            return SocketFault::unreachable;
        case ETIMEDOUT:
            return SocketFault::timed_out;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
            return SocketFault::no_descriptors;
        default:
            return SocketFault::other;
    }
}

bool start_sockets() noexcept {
    // The write's result reports a peer that closed; MSG_NOSIGNAL covers sockets, this covers pipes and
    // libraries.
    return std::signal(SIGPIPE, SIG_IGN) != SIG_ERR;
}

TcpSocket::TcpSocket(std::intptr_t native) noexcept : native_(native) {}

TcpSocket::TcpSocket(TcpSocket&& other) noexcept
    : native_(std::exchange(other.native_, invalid)), event_(std::exchange(other.event_, 0)) {}

TcpSocket& TcpSocket::operator=(TcpSocket&& other) noexcept {
    if (this != &other) {
        close();
        native_ = std::exchange(other.native_, invalid);
        event_ = std::exchange(other.event_, 0);
    }
    return *this;
}

TcpSocket::~TcpSocket() {
    close();
}

void TcpSocket::close() noexcept {
    if (native_ != invalid) ::close(descriptor(std::exchange(native_, invalid)));
}

void TcpSocket::close_with_reset() noexcept {
    if (native_ == invalid) return;
    const linger at_once{1, 0};
    ::setsockopt(descriptor(native_), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close();
}

Outcome<TcpSocket> TcpSocket::begin_connect(const SocketAddress& to) {
    return begin_connect(to, NetworkWay());
}

Outcome<TcpSocket> TcpSocket::begin_connect(const SocketAddress& to, const NetworkWay& way) {
    if (to.size() == 0) return failure(EAFNOSUPPORT);
    TcpSocket socket = SocketWaiter::make(to);
    if (!socket.is_open()) return failure(errno);
    socket.set_no_delay();
    if (const int error = way.bind(socket.native_, to.is_ipv6(), 0); error != 0) return failure(error);
    if (const int error = ask_hook(Operation::connect); error != 0) return failure(error);
    const auto* address = static_cast<const sockaddr*>(to.data());
    const int result = ::connect(descriptor(socket.native_), address, static_cast<socklen_t>(to.size()));
    // A signal does not end the attempt: the connection goes on being made, as if the socket were
    // non-blocking.
    if (result != 0 && errno != EINPROGRESS && errno != EINTR) return failure(errno);
    return socket;
}

int TcpSocket::connect_error() const noexcept {
    int error = ask_hook(Operation::connect_end);
    if (error != 0) return error;
    socklen_t size = sizeof error;
    if (::getsockopt(descriptor(native_), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
    return error;
}

IoStep TcpSocket::read(std::span<std::byte> into) noexcept {
    if (into.empty()) return {IoStep::State::moved, 0, 0};
    if (const int error = ask_hook(Operation::receive); error != 0) return failed_step(error);
    for (;;) {
        const ssize_t count = ::recv(descriptor(native_), into.data(), into.size(), 0);
        if (count > 0) return {IoStep::State::moved, static_cast<std::size_t>(count), 0};
        if (count == 0) return {IoStep::State::closed, 0, 0};
        if (errno != EINTR) return failed_step(errno);
    }
}

IoStep TcpSocket::write(std::span<const std::byte> from) noexcept {
    if (const int error = ask_hook(Operation::send); error != 0) return failed_step(error);
    for (;;) {
        const ssize_t count = ::send(descriptor(native_), from.data(), from.size(), MSG_NOSIGNAL);
        if (count >= 0) return {IoStep::State::moved, static_cast<std::size_t>(count), 0};
        if (errno != EINTR) return failed_step(errno);
    }
}

bool TcpSocket::is_quiet() noexcept {
    if (ask_hook(Operation::receive) != 0) return false;
    for (;;) {
        std::byte byte{};
        const ssize_t count = ::recv(descriptor(native_), &byte, 1, MSG_PEEK);
        if (count >= 0) return false;
        if (errno != EINTR) return errno == EAGAIN || errno == EWOULDBLOCK;
    }
}

void TcpSocket::set_no_delay() noexcept {
    set_option(native_, IPPROTO_TCP, TCP_NODELAY, 1);
}

void TcpSocket::set_receive_buffer(std::size_t bytes) noexcept {
    if (bytes == 0) return;
    const std::size_t most = 1U << 30U;
    set_option(native_, SOL_SOCKET, SO_RCVBUF, static_cast<int>(bytes < most ? bytes : most));
}

std::optional<SocketAddress> TcpSocket::local_address() const {
    return ask_address(native_, ::getsockname);
}
std::optional<SocketAddress> TcpSocket::peer_address() const {
    return ask_address(native_, ::getpeername);
}

Ready SocketWaiter::wait(std::span<SocketWait> sockets, std::chrono::milliseconds at_most,
                         const StopSource& stop) {
    if (sockets.size() > most_sockets || ask_hook(Operation::wait) != 0) return Ready::failed;
    pollfd entries[most_sockets + 1];
    bool is_ready = false;
    for (std::size_t i = 0; i < sockets.size(); ++i) {
        const bool open = sockets[i].socket != nullptr && sockets[i].socket->is_open();
        sockets[i].ready = !open;
        is_ready = is_ready || !open;
        const auto events = static_cast<short>(sockets[i].interest == Interest::read ? POLLIN : POLLOUT);
        entries[i] = {open ? descriptor(native(*sockets[i].socket)) : -1, events, 0};
    }
    const bool blind = stop.wake().native() < 0;
    entries[sockets.size()] = {descriptor(stop.wake().native()), POLLIN, 0};
    const Deadline deadline(at_most);
    for (;;) {
        const int left = is_ready ? 0 : deadline.left();
        const bool step = blind && (left < 0 || left > blind_step_ms);
        const int count = ::poll(entries, sockets.size() + 1, step ? blind_step_ms : left);
        if (count < 0 && errno != EINTR) return Ready::failed;
        if (entries[sockets.size()].revents != 0 || (blind && stop.requested())) return Ready::stopped;
        for (std::size_t i = 0; count > 0 && i < sockets.size(); ++i) {
            sockets[i].ready = sockets[i].ready || entries[i].revents != 0;
        }
        if (count > 0 || is_ready) return Ready::yes;
        if (count == 0 && deadline.left() == 0) return Ready::timeout;
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
    if (at.size() == 0) return failure(EAFNOSUPPORT);
    TcpListener listener;
    listener.socket_ = SocketWaiter::make(at);
    if (!listener.socket_.is_open()) return failure(errno);
    const std::intptr_t native = SocketWaiter::native(listener.socket_);
    if (const int error = ask_hook(Operation::listen); error != 0) return failure(error);
    set_option(native, SOL_SOCKET, SO_REUSEADDR, 1);
    if (at.is_ipv6()) set_option(native, IPPROTO_IPV6, IPV6_V6ONLY, 1);
    const auto* address = static_cast<const sockaddr*>(at.data());
    if (::bind(descriptor(native), address, static_cast<socklen_t>(at.size())) != 0) return failure(errno);
    if (::listen(descriptor(native), backlog) != 0) return failure(errno);
    return listener;
}

Outcome<TcpSocket> TcpListener::accept(std::chrono::milliseconds at_most, const StopSource& stop) {
    const Deadline deadline(at_most);
    for (;;) {
        const Ready ready =
            wait_socket(socket_, Interest::read, std::chrono::milliseconds(deadline.left()), stop);
        if (ready == Ready::stopped) return Code::stopped;
        if (ready == Ready::timeout) return Result(Code::transient, "Nobody connected.");
        if (ready == Ready::failed || !socket_.is_open()) return failure(EBADF);
        if (const int error = ask_hook(Operation::accept); error != 0) return failure(error);
        const int native = descriptor(SocketWaiter::native(socket_));
        TcpSocket socket(::accept4(native, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (socket.is_open()) {
            socket.set_no_delay();
            return socket;
        }
        if (!is_passing_accept_error(errno)) return failure(errno);
    }
}

}  // namespace vantlow
