#include "platform/name_functions.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/net_headers.h"

namespace vantlow {
namespace {

// One answer of the built-in version, with everything that its parts point to; it is released as a whole.
struct Entry {
    addrinfo info{};
    sockaddr_in address{};
};

void built_in_free(addrinfo* list) {
    while (list != nullptr) {
        addrinfo* const next = list->ai_next;
        delete reinterpret_cast<Entry*>(list);  // info is its first member
        list = next;
    }
}

std::optional<std::uint16_t> read_port(const char* service) noexcept {
    if (service == nullptr) return std::uint16_t{0};
    const auto number = parse_decimal(service);
    if (!number || *number > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
    return static_cast<std::uint16_t>(*number);
}

// Puts an entry in front of the list.
void prepend(addrinfo*& list, const in_addr& address, std::uint16_t port, const addrinfo* hints) {
    auto entry = std::make_unique<Entry>();
    entry->address.sin_family = AF_INET;
    entry->address.sin_port = htons(port);
    entry->address.sin_addr = address;
    entry->info.ai_family = AF_INET;
    entry->info.ai_socktype = hints != nullptr && hints->ai_socktype != 0 ? hints->ai_socktype : SOCK_STREAM;
    entry->info.ai_protocol = hints != nullptr ? hints->ai_protocol : 0;
    entry->info.ai_addr = reinterpret_cast<sockaddr*>(&entry->address);
    entry->info.ai_addrlen = sizeof entry->address;
    entry->info.ai_next = list;
    list = &entry.release()->info;
}

int ask_by_name(const char* node, std::uint16_t port, const addrinfo* hints, addrinfo*& list) {
    static Mutex mutex;  // the answer lies in storage that the system reuses
    const MutexLock lock(mutex);
    const hostent* const answer = gethostbyname(node);  // NOLINT(concurrency-mt-unsafe): under the lock
    if (answer == nullptr || answer->h_addrtype != AF_INET || answer->h_addr_list[0] == nullptr) {
        return answer == nullptr && h_errno == TRY_AGAIN ? EAI_AGAIN : EAI_NONAME;
    }
    std::ptrdiff_t count = 0;
    while (answer->h_addr_list[count] != nullptr) ++count;
    while (count-- > 0) {
        in_addr address{};
        std::memcpy(&address, answer->h_addr_list[count], sizeof address);
        prepend(list, address, port, hints);
    }
    return 0;
}

int built_in_get_address(const char* node, const char* service, const addrinfo* hints, addrinfo** list) {
    *list = nullptr;
    const int flags = hints != nullptr ? hints->ai_flags : 0;
    if (hints != nullptr && hints->ai_family != AF_UNSPEC && hints->ai_family != AF_INET) return EAI_FAMILY;
    if (node == nullptr && service == nullptr) return EAI_NONAME;
    const auto port = read_port(service);
    if (!port) return EAI_SERVICE;
    in_addr address{};
    if (node == nullptr) {
        address.s_addr = htonl((flags & AI_PASSIVE) != 0 ? INADDR_ANY : INADDR_LOOPBACK);
    } else if (inet_pton(AF_INET, node, &address) != 1) {
        return (flags & AI_NUMERICHOST) != 0 ? EAI_NONAME : ask_by_name(node, *port, hints, *list);
    }
    prepend(*list, address, *port, hints);
    return 0;
}

bool put_text(std::string_view text, char* into, std::uint32_t size) noexcept {
    if (into == nullptr || size == 0) return true;
    if (text.size() >= size) return false;
    *std::copy(text.begin(), text.end(), into) = '\0';
    return true;
}

int built_in_get_name(const sockaddr* address, int size, char* node, std::uint32_t node_size, char* service,
                      std::uint32_t service_size, int flags) {
    if (address == nullptr || size < static_cast<int>(sizeof(sockaddr_in)) || address->sa_family != AF_INET) {
        return EAI_FAMILY;
    }
    sockaddr_in record{};
    std::memcpy(&record, address, sizeof record);
    char digits[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &record.sin_addr, digits, sizeof digits);
    if ((flags & NI_NAMEREQD) != 0) return EAI_NONAME;  // names of addresses are not looked up here
    const bool fits = put_text(digits, node, node_size) &&
                      put_text(std::to_string(ntohs(record.sin_port)), service, service_size);
    return fits ? 0 : EAI_MEMORY;
}

template <class Function>
Function* as_function(void* operation) noexcept {
    return reinterpret_cast<Function*>(operation);
}

}  // namespace

NameFunctions built_in_name_functions() noexcept {
    return {&built_in_get_address, &built_in_get_name, &built_in_free, "built-in"};
}

NameFunctions choose_name_functions(FindOperation find) noexcept {
    for (const std::string_view library : {"ws2_32", "wship6"}) {
        void* const get_address = find(library, "getaddrinfo");
        if (get_address == nullptr) continue;
        void* const get_name = find(library, "getnameinfo");
        void* const free_address = find(library, "freeaddrinfo");
        if (get_name == nullptr || free_address == nullptr) break;
        NameFunctions found = built_in_name_functions();
        found.get_address =
            as_function<int(const char*, const char*, const addrinfo*, addrinfo**)>(get_address);
        found.get_name =
            as_function<int(const sockaddr*, int, char*, std::uint32_t, char*, std::uint32_t, int)>(get_name);
        found.free_address = as_function<void(addrinfo*)>(free_address);
        found.source = library;
        return found;
    }
    return built_in_name_functions();
}

}  // namespace vantlow
