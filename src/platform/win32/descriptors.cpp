#include "platform/descriptors.h"

#include "platform/win32/native.h"

namespace vantlow {

std::size_t raise_descriptor_limit() noexcept {
    return 0;
}

void keep_from_children(std::intptr_t socket) noexcept {
    SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
}

}  // namespace vantlow
