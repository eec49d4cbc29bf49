// How many sockets and files the process may have, and who inherits them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vantlow {

/// Raises the process's limit of descriptors as far as the system lets it (65,536 at most) and says what it
/// is now; 0 where the system has no such limit. Never lowers it. Once, at the start.
std::size_t raise_descriptor_limit() noexcept;

/// Programs that this one starts do not get the socket.
void keep_from_children(std::intptr_t socket) noexcept;

}  // namespace vantlow
