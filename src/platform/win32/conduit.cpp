#include "platform/conduit.h"

namespace vantlow {

bool Conduit::open() noexcept {
    useless_ = true;
    return false;
}

void Conduit::close() noexcept {}

IoStep Conduit::receive(TcpSocket&, std::size_t) noexcept {
    return {IoStep::State::failed, 0, 0};
}

FileError Conduit::write_to(File&, std::int64_t, std::size_t) noexcept {
    return {FileFault::other, 0};
}

bool Conduit::take(std::span<std::byte>) noexcept {
    return false;
}

}  // namespace vantlow
