#include "platform/name_functions.h"

#include <cerrno>

#include "platform/local_text.h"
#include "platform/net_headers.h"

namespace vantlow {

const NameFunctions& name_functions() noexcept {
    static const NameFunctions functions{
        &::getaddrinfo,
        [](const sockaddr* address, int size, char* node, std::uint32_t node_size, char* service,
           std::uint32_t service_size, int flags) {
            return ::getnameinfo(address, static_cast<socklen_t>(size), node, node_size, service,
                                 service_size, flags);
        },
        &::freeaddrinfo, "system"};
    return functions;
}

bool is_definite_name_error(int error) noexcept {
    return error == EAI_NONAME || error == EAI_NODATA;
}

std::string name_error_text(int error) {
    return error == EAI_SYSTEM ? system_text(errno) : ::gai_strerror(error);
}

}  // namespace vantlow
