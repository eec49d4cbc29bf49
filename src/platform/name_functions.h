// The three name functions: the place where they are found, and the meaning of their errors.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct addrinfo;
struct sockaddr;

namespace vantlow {

/// getaddrinfo, getnameinfo and freeaddrinfo, or their replacements.
struct NameFunctions {
    int (*get_address)(const char* node, const char* service, const addrinfo* hints, addrinfo** list);
    int (*get_name)(const sockaddr* address, int size, char* node, std::uint32_t node_size, char* service,
                    std::uint32_t service_size, int flags);
    void (*free_address)(addrinfo* list);
    std::string_view source;
};

/// Looks an operation up in a library of the system; null when either is missing.
using FindOperation = void* (*)(std::string_view library, const char* operation);

/// Chooses the three functions from "ws2_32" or, where that has no getaddrinfo, from "wship6"; the built-in
/// ones when one of the three is missing there.
NameFunctions choose_name_functions(FindOperation find) noexcept;

/// Versions that know IPv4 only, made over gethostbyname.
NameFunctions built_in_name_functions() noexcept;

/// The functions of this process: chosen by the first call, the same for all later ones.
const NameFunctions& name_functions() noexcept;

/// True when the name does not exist; false when there was no answer.
bool is_definite_name_error(int error) noexcept;
/// The error as a sentence, UTF-8. To be called at once, because one kind of error has its details in errno.
std::string name_error_text(int error);

}  // namespace vantlow
