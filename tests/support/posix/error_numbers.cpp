#include <netdb.h>

#include <array>
#include <cerrno>

#include "support/fault_hook.h"

namespace vantlow::test {

// Both tables stand in the order of their enumerators.
int error_number(FileFault fault) noexcept {
    constexpr std::array<int, static_cast<std::size_t>(FileFault::other) + 1> numbers{
        0, ENOENT, EEXIST, EACCES, EISDIR, ENOSPC, EROFS, ENAMETOOLONG, EBUSY, EFBIG, EIO, EIO};
    return numbers.at(static_cast<std::size_t>(fault));
}

int error_number(SocketFault fault) noexcept {
    constexpr std::array<int, static_cast<std::size_t>(SocketFault::other) + 1> numbers{
        0, ECONNREFUSED, ECONNRESET, ENETUNREACH, ETIMEDOUT, EMFILE, EIO};
    return numbers.at(static_cast<std::size_t>(fault));
}

int name_error_number() noexcept {
    return EAI_AGAIN;
}

}  // namespace vantlow::test
