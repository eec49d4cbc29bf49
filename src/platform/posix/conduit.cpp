#include "platform/conduit.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/file_parts.h"

namespace vantlow {
namespace {

// A smaller pipe takes more calls than the copy that it saves is worth. The system lets a user without
// privileges have 64 MiB of enlarged pipes; beyond that a connection reads into memory.
constexpr int wanted_size = 1 << 20;
constexpr int least_size = 1 << 18;
constexpr std::size_t copied_at_once = 16 * 1024;

}  // namespace

bool Conduit::open() noexcept {
    if (out_ >= 0) return true;
    if (useless_) return false;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        useless_ = true;
        return false;
    }
    out_ = ends[0];
    in_ = ends[1];
    if (::fcntl(in_, F_SETPIPE_SZ, wanted_size) < least_size &&
        ::fcntl(in_, F_SETPIPE_SZ, least_size) < least_size) {
        close();
        useless_ = true;
    }
    return !useless_;
}

void Conduit::close() noexcept {
    if (out_ < 0) return;
    ::close(out_);
    ::close(in_);
    out_ = in_ = -1;
    filled_ = 0;
}

IoStep Conduit::receive(TcpSocket& from, std::size_t most) noexcept {
    if (const int error = ask_hook(Operation::receive); error != 0) return {IoStep::State::failed, 0, error};
    for (;;) {
        const ssize_t count = ::splice(static_cast<int>(from.native_), nullptr, in_, nullptr, most,
                                       SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
        if (count > 0) {
            filled_ += static_cast<std::size_t>(count);
            return {IoStep::State::moved, static_cast<std::size_t>(count), 0};
        }
        if (count == 0) return {IoStep::State::closed, 0, 0};
        if (errno == EINVAL || errno == ENOSYS) return receive_copied(from, most);
        if (errno == EAGAIN) return {IoStep::State::would_block, 0, 0};
        if (errno != EINTR) return {IoStep::State::failed, 0, errno};
    }
}

IoStep Conduit::receive_copied(TcpSocket& from, std::size_t most) noexcept {
    useless_ = true;
    std::array<std::byte, copied_at_once> buffer;
    const IoStep step = from.read(std::span(buffer).first(std::min(most, buffer.size())));
    if (step.state != IoStep::State::moved) return step;
    // It was empty and has room for more than this.
    if (::write(in_, buffer.data(), step.bytes) != static_cast<ssize_t>(step.bytes))
        return {IoStep::State::failed, 0, errno};
    filled_ += step.bytes;
    return step;
}

FileError Conduit::write_to(File& to, std::int64_t offset, std::size_t bytes) noexcept {
    const auto length = static_cast<std::int64_t>(bytes);
    FileError error = ask_file_hook(Operation::write, to.path_, offset, length);
    while (error.ok() && bytes > 0) {
        loff_t at = offset;
        const ssize_t count =
            ::splice(out_, nullptr, static_cast<int>(to.native_), &at, bytes, SPLICE_F_MOVE);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EINVAL) return copy_to(to, offset, bytes);
        if (count <= 0) {
            error = file_error_of(count < 0 ? errno : EIO);
            break;
        }
        filled_ -= static_cast<std::size_t>(count);
        bytes -= static_cast<std::size_t>(count);
        offset += count;
    }
    if (error.ok()) return {};
    close();
    return error;
}

FileError Conduit::copy_to(File& to, std::int64_t offset, std::size_t bytes) noexcept {
    useless_ = true;
    std::array<std::byte, copied_at_once> buffer;
    while (bytes > 0) {
        const auto part = std::span(buffer).first(std::min(bytes, buffer.size()));
        if (!take(part)) return file_error_of(EIO);
        if (FileError error = to.write_at(offset, part); !error.ok()) {
            close();
            return error;
        }
        bytes -= part.size();
        offset += static_cast<std::int64_t>(part.size());
    }
    return {};
}

bool Conduit::take(std::span<std::byte> into) noexcept {
    while (!into.empty()) {
        const ssize_t count = ::read(out_, into.data(), into.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            close();
            useless_ = true;
            return false;
        }
        filled_ -= static_cast<std::size_t>(count);
        into = into.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace vantlow
