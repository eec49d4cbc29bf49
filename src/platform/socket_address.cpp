#include <cstring>

#include "platform/name_functions.h"
#include "platform/net_headers.h"
#include "platform/socket.h"

namespace vantlow {
namespace {

template <class Record>
Record take(const void* bytes) noexcept {
    Record record;
    std::memcpy(&record, bytes, sizeof record);
    return record;
}

int family_of(const void* bytes) noexcept {
    return take<sockaddr>(bytes).sa_family;
}

}  // namespace

static_assert(sizeof(sockaddr_in6) == 28 && sizeof(sockaddr_in) == 16);

// Only what an address consists of is copied, so that equal addresses have equal bytes.
SocketAddress::SocketAddress(const void* source, std::size_t size) {
    if (source == nullptr || size < sizeof(sockaddr)) return;
    const int family = family_of(source);
    if (family == AF_INET) {
        const auto from = take<sockaddr_in>(source);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = from.sin_port;
        to.sin_addr = from.sin_addr;
        std::memcpy(storage_.data(), &to, size_ = sizeof to);
    } else if (family == AF_INET6 && size >= sizeof(sockaddr_in6)) {
        const auto from = take<sockaddr_in6>(source);
        sockaddr_in6 to{};
        to.sin6_family = AF_INET6;
        to.sin6_port = from.sin6_port;
        to.sin6_addr = from.sin6_addr;
        to.sin6_scope_id = from.sin6_scope_id;
        std::memcpy(storage_.data(), &to, size_ = sizeof to);
    }
}

std::optional<SocketAddress> SocketAddress::from_literal(std::string_view literal, std::uint16_t port) {
    const std::string text(literal);
    if (text.find('\0') != std::string::npos) return std::nullopt;
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) return SocketAddress(&v4, sizeof v4);
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) return SocketAddress(&v6, sizeof v6);
    return std::nullopt;
}

bool SocketAddress::is_ipv6() const noexcept {
    return size_ == sizeof(sockaddr_in6);
}

std::uint16_t SocketAddress::port() const noexcept {
    // The port stands at the same place in both kinds.
    return size_ == 0 ? std::uint16_t{0} : ntohs(take<sockaddr_in>(storage_.data()).sin_port);
}

void SocketAddress::set_port(std::uint16_t port) noexcept {
    if (size_ == 0) return;
    const std::uint16_t network = htons(port);
    std::memcpy(storage_.data() + offsetof(sockaddr_in, sin_port), &network, sizeof network);
}

std::array<std::uint8_t, 4> SocketAddress::ipv4() const noexcept {
    std::array<std::uint8_t, 4> bytes{};
    if (size_ == sizeof(sockaddr_in)) {
        std::memcpy(bytes.data(), storage_.data() + offsetof(sockaddr_in, sin_addr), bytes.size());
    }
    return bytes;
}

std::array<std::uint8_t, 16> SocketAddress::ipv6() const noexcept {
    std::array<std::uint8_t, 16> bytes{};
    if (is_ipv6())
        std::memcpy(bytes.data(), storage_.data() + offsetof(sockaddr_in6, sin6_addr), bytes.size());
    return bytes;
}

std::string SocketAddress::host() const {
    if (size_ == 0) return {};
    char name[NI_MAXHOST] = {};
    const auto* address = reinterpret_cast<const sockaddr*>(storage_.data());
    const int error = name_functions().get_name(address, static_cast<int>(size_), name, sizeof name, nullptr,
                                                0, NI_NUMERICHOST);
    return error == 0 ? std::string(name) : std::string{};
}

bool SocketAddress::operator==(const SocketAddress& other) const noexcept {
    return size_ == other.size_ && storage_ == other.storage_;
}

}  // namespace vantlow
