// Messages between the processes of one user, over Unix sockets.
#pragma once

#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/stop.h"

namespace vantlow {

/// A descriptor that is closed at the end.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    void reset(int fd) noexcept {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }
    [[nodiscard]] int get() const noexcept { return fd_; }

  private:
    int fd_;
};

/// False for a path that is empty or too long.
bool make_address(const std::string& path, sockaddr_un& address) noexcept;

/// Waits for the descriptor (the events of poll), the end of the time or a stop (null: none); false for the
/// last two.
bool wait_for(int fd, short events, const Deadline& deadline, const StopSource* stop) noexcept;

/// Sends a message: its length, 4 bytes in the byte order of this machine, then its bytes. False when the
/// other side went away, the time was over or a stop came; then the connection can only be closed.
bool send_message(int fd, std::string_view message, const Deadline& deadline,
                  const StopSource* stop) noexcept;
/// Receives a message; false also for one of more than `at_most` bytes. Memory grows with the bytes that
/// arrive.
bool receive_message(int fd, std::string& message, std::size_t at_most, const Deadline& deadline,
                     const StopSource* stop);

/// Whether the other side is a process of this user.
bool is_same_user(int fd) noexcept;
/// The process that made the other side; 0 where the system does not say.
std::int64_t other_process(int fd) noexcept;

}  // namespace vantlow
