// The ways out of this machine, as the system would choose them. Nothing is sent.
#pragma once

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <sys/socket.h>
#endif

#include <optional>
#include <string>

/// Who waits for an order to a router, and whether they still want to know.
struct Asker {
    int (*stopped)(void*) = nullptr;
    void* context = nullptr;
    [[nodiscard]] bool has_left() const { return stopped != nullptr && stopped(context) != 0; }
};

/// Whether datagrams to all UPnP devices have a way out. Without one the library writes to the terminal.
bool has_way_to_devices();

/// The address that this machine has towards the world over IPv6, and the interface that has it.
struct OutwardIpv6 {
    std::string text;
    std::string interface_name;  ///< empty: unknown, as on Windows
};
/// None where there is no way out over IPv6, or the address is one that the world does not reach.
std::optional<OutwardIpv6> outward_ipv6();
