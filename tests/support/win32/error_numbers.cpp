#include <winsock2.h>
// after it
#include <windows.h>

#include <array>

#include "support/fault_hook.h"

namespace vantlow::test {

// Both tables stand in the order of their enumerators. A folder in place of a file is refused like one
// without rights: a path tells the two apart.
int error_number(FileFault fault) noexcept {
    constexpr std::array<int, static_cast<std::size_t>(FileFault::other) + 1> numbers{
        0,
        ERROR_FILE_NOT_FOUND,
        ERROR_FILE_EXISTS,
        ERROR_ACCESS_DENIED,
        ERROR_ACCESS_DENIED,
        ERROR_DISK_FULL,
        ERROR_WRITE_PROTECT,
        ERROR_FILENAME_EXCED_RANGE,
        ERROR_SHARING_VIOLATION,
        ERROR_FILE_TOO_LARGE,
        ERROR_IO_DEVICE,
        ERROR_IO_DEVICE};
    return numbers.at(static_cast<std::size_t>(fault));
}

int error_number(SocketFault fault) noexcept {
    constexpr std::array<int, static_cast<std::size_t>(SocketFault::other) + 1> numbers{
        0, WSAECONNREFUSED, WSAECONNRESET, WSAENETUNREACH, WSAETIMEDOUT, WSAEMFILE, WSAEFAULT};
    return numbers.at(static_cast<std::size_t>(fault));
}

int name_error_number() noexcept {
    return WSATRY_AGAIN;
}

}  // namespace vantlow::test
