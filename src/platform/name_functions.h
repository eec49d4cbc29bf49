// The three name functions, where they come from, and what their errors mean.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct addrinfo;
struct sockaddr;

namespace vantlow {

/// getaddrinfo, getnameinfo and freeaddrinfo, or what stands in for them.
struct NameFunctions {
    int (*get_address)(const char* node, const char* service, const addrinfo* hints, addrinfo** list);
    int (*get_name)(const sockaddr* address, int size, char* node, std::uint32_t node_size, char* service,
                    std::uint32_t service_size, int flags);
    void (*free_address)(addrinfo* list);
    std::string_view source;
};

/// Looks an operation up in a library of the system; null when either is missing.
using FindOperation = void* (*)(std::string_view library, const char* operation);

/// Takes the three from "ws2_32" or, where that has no getaddrinfo, from "wship6"; the built-in ones when one
/// of the three is missing there.
NameFunctions choose_name_functions(FindOperation find) noexcept;

/// Versions that know IPv4 only, made over gethostbyname.
NameFunctions built_in_name_functions() noexcept;

/// The ones of this process: chosen by the first call, remembered for all later ones.
const NameFunctions& name_functions() noexcept;

/// True when the name does not exist, rather than nobody having answered.
bool is_definite_name_error(int error) noexcept;
/// The error as a sentence, UTF-8. Asked at once: of one kind only errno knows more.
std::string name_error_text(int error);

}  // namespace vantlow
