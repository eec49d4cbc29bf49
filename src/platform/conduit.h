// A buffer within the system, for bytes on the way from a socket to a file that nobody looks at.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/file.h"
#include "platform/socket.h"

namespace vantlow {

/// Takes what a socket received and gives it to a file, oldest bytes first, without a copy in this program.
/// Linux: a pipe (splice(2)). Windows moves bytes so from a file to a socket only (TransmitFile), so none can
/// be opened there. Owned and used by one thread.
class Conduit {
  public:
    Conduit() = default;
    ~Conduit() { close(); }
    Conduit(const Conduit&) = delete;
    Conduit& operator=(const Conduit&) = delete;

    /// False where the system has none, or none that is large enough to be worth it; every later call says so
    /// too.
    bool open() noexcept;
    void close() noexcept;
    /// True once it has turned out to bring nothing: there is none, it failed, or the socket or the file
    /// system knows no pipes, and the bytes went through memory after all.
    [[nodiscard]] bool is_useless() const noexcept { return useless_; }
    /// Bytes that are in it.
    [[nodiscard]] std::size_t filled() const noexcept { return filled_; }

    /// Receives what is there, up to `most` bytes (above 0), without waiting, as TcpSocket::read does. To be
    /// called while it is empty.
    IoStep receive(TcpSocket& from, std::size_t most) noexcept;
    /// Writes the oldest `bytes` bytes, which must be in it, at the offset. After a failure all that is in it
    /// is lost.
    FileError write_to(File& to, std::int64_t offset, std::size_t bytes) noexcept;
    /// Takes the oldest bytes, as many as there is room for, out of it. False after a failure.
    bool take(std::span<std::byte> into) noexcept;

  private:
    // Through memory, for what takes no pipes.
    IoStep receive_copied(TcpSocket& from, std::size_t most) noexcept;
    FileError copy_to(File& to, std::int64_t offset, std::size_t bytes) noexcept;

    int out_ = -1;
    int in_ = -1;
    std::size_t filled_ = 0;
    bool useless_ = false;
};

}  // namespace vantlow
