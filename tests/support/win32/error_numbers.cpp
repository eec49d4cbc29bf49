#include <winsock2.h>
// after it
#include <windows.h>

#include "support/fault_hook.h"

namespace vantlow::test {

int error_number(FileFault fault) noexcept {
    switch (fault) {
        case FileFault::none:
            return 0;
        case FileFault::not_found:
            return ERROR_FILE_NOT_FOUND;
        case FileFault::exists:
            return ERROR_FILE_EXISTS;
        case FileFault::access:
            return ERROR_ACCESS_DENIED;
        case FileFault::is_folder:
            return ERROR_ACCESS_DENIED;  // a path tells the two apart
        case FileFault::no_space:
            return ERROR_DISK_FULL;
        case FileFault::read_only:
            return ERROR_WRITE_PROTECT;
        case FileFault::name_too_long:
            return ERROR_FILENAME_EXCED_RANGE;
        case FileFault::in_use:
            return ERROR_SHARING_VIOLATION;
        case FileFault::too_large:
            return ERROR_FILE_TOO_LARGE;
        case FileFault::folder_lost:
        case FileFault::other:
            break;
    }
    return ERROR_IO_DEVICE;
}

int error_number(SocketFault fault) noexcept {
    switch (fault) {
        case SocketFault::none:
            return 0;
        case SocketFault::refused:
            return WSAECONNREFUSED;
        case SocketFault::reset:
            return WSAECONNRESET;
        case SocketFault::unreachable:
            return WSAENETUNREACH;
        case SocketFault::timed_out:
            return WSAETIMEDOUT;
        case SocketFault::no_descriptors:
            return WSAEMFILE;
        case SocketFault::other:
            break;
    }
    return WSAEFAULT;
}

int name_error_number() noexcept {
    return WSATRY_AGAIN;
}

}  // namespace vantlow::test
