#include <netdb.h>

#include <cerrno>

#include "support/fault_hook.h"

namespace vantlow::test {

int error_number(FileFault fault) noexcept {
    switch (fault) {
        case FileFault::none:
            return 0;
        case FileFault::not_found:
            return ENOENT;
        case FileFault::exists:
            return EEXIST;
        case FileFault::access:
            return EACCES;
        case FileFault::is_folder:
            return EISDIR;
        case FileFault::no_space:
            return ENOSPC;
        case FileFault::read_only:
            return EROFS;
        case FileFault::name_too_long:
            return ENAMETOOLONG;
        case FileFault::in_use:
            return EBUSY;
        case FileFault::too_large:
            return EFBIG;
        case FileFault::folder_lost:
        case FileFault::other:
            break;
    }
    return EIO;
}

int error_number(SocketFault fault) noexcept {
    switch (fault) {
        case SocketFault::none:
            return 0;
        case SocketFault::refused:
            return ECONNREFUSED;
        case SocketFault::reset:
            return ECONNRESET;
        case SocketFault::unreachable:
            return ENETUNREACH;
        case SocketFault::timed_out:
            return ETIMEDOUT;
        case SocketFault::no_descriptors:
            return EMFILE;
        case SocketFault::other:
            break;
    }
    return EIO;
}

int name_error_number() noexcept {
    return EAI_AGAIN;
}

}  // namespace vantlow::test
