#include "platform/posix/local_socket.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

#include "platform/fault_hook.h"

namespace vantlow {
namespace {

// The interval at which a stop is looked for where the system had no event for it.
constexpr int blind_step_ms = 20;

std::optional<ucred> other_side(int fd) noexcept {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
    return peer;
}

bool send_all(int fd, std::string_view bytes, const Deadline& deadline, const StopSource* stop) noexcept {
    while (!bytes.empty()) {
        if (ask_hook(Operation::send) != 0) return false;
        const ssize_t count = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!wait_for(fd, POLLOUT, deadline, stop)) return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool receive_all(int fd, char* into, std::size_t size, const Deadline& deadline,
                 const StopSource* stop) noexcept {
    while (size > 0) {
        if (ask_hook(Operation::receive) != 0) return false;
        const ssize_t count = ::recv(fd, into, size, MSG_DONTWAIT);
        if (count > 0) {
            into += count;
            size -= static_cast<std::size_t>(count);
        } else if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!wait_for(fd, POLLIN, deadline, stop)) return false;
        } else if (count == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool make_address(const std::string& path, sockaddr_un& address) noexcept {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

bool wait_for(int fd, short events, const Deadline& deadline, const StopSource* stop) noexcept {
    const bool blind = stop != nullptr && stop->wake().native() < 0;
    for (;;) {
        pollfd entries[] = {{fd, events, 0},
                            {stop != nullptr ? static_cast<int>(stop->wake().native()) : -1, POLLIN, 0}};
        const int left = deadline.left();
        const bool step = blind && (left < 0 || left > blind_step_ms);
        const int count = ::poll(entries, 2, step ? blind_step_ms : left);
        if (stop != nullptr && stop->requested()) return false;
        if ((count < 0 && errno == EINTR) || (count == 0 && step)) continue;
        return count > 0;
    }
}

bool send_message(int fd, std::string_view message, const Deadline& deadline,
                  const StopSource* stop) noexcept {
    const auto length = static_cast<std::uint32_t>(message.size());
    char head[sizeof length];
    std::memcpy(head, &length, sizeof length);
    return send_all(fd, {head, sizeof head}, deadline, stop) && send_all(fd, message, deadline, stop);
}

bool receive_message(int fd, std::string& message, std::size_t at_most, const Deadline& deadline,
                     const StopSource* stop) {
    std::uint32_t length = 0;
    char head[sizeof length];
    if (!receive_all(fd, head, sizeof head, deadline, stop)) return false;
    std::memcpy(&length, head, sizeof length);
    if (length > at_most) return false;
    message.clear();
    // Memory is taken for the bytes that arrive, not for those that are promised.
    constexpr std::size_t step = 1U << 20U;
    while (message.size() < length) {
        const std::size_t before = message.size();
        message.resize(std::min<std::size_t>(length, before + step));
        if (!receive_all(fd, message.data() + before, message.size() - before, deadline, stop)) return false;
    }
    return true;
}

bool is_same_user(int fd) noexcept {
    const auto peer = other_side(fd);
    return peer && peer->uid == ::geteuid();
}

std::int64_t other_process(int fd) noexcept {
    const auto peer = other_side(fd);
    return peer ? peer->pid : 0;
}

}  // namespace vantlow
