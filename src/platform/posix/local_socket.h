// Messages between the processes of one user, over Unix sockets.
#pragma once

#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/deadline.h"
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

/// Waits for the descriptor (poll's events), the end of the time or a stop (null: none); false for the last
/// two.
bool wait_for(int fd, short events, const Deadline& deadline, const StopSource* stop) noexcept;

/// A message is its length, 4 bytes in the order of this machine, and its bytes. False when the other side
/// went away, the time was over or a stop came: the connection can only be closed then.
bool send_message(int fd, std::string_view message, const Deadline& deadline,
                  const StopSource* stop) noexcept;
/// False also for a message of more than `at_most` bytes. Takes memory as the bytes come.
bool receive_message(int fd, std::string& message, std::size_t at_most, const Deadline& deadline,
                     const StopSource* stop);

/// Whether the other side is a process of this user.
bool is_same_user(int fd) noexcept;
/// The process that made the other side; 0 where the system does not tell.
std::int64_t other_process(int fd) noexcept;

}  // namespace vantlow
