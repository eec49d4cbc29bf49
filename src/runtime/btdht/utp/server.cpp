// uTP over libutp: servers at ports of their owners, and connections with a bounded buffer each.
#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netinet/in.h>
#include <sys/socket.h>
#endif

#include <utp.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "runtime/login/primitives.h"
#include "runtime/operations.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// The bytes that a peer may send ahead, and is sent ahead: with many peers each has a share of all.
constexpr std::size_t largest_window = 1024 * 1024;
constexpr std::size_t smallest_window = 64 * 1024;
constexpr std::size_t all_windows = 24 * largest_window;
constexpr std::size_t rudeness =
    256 * 1024;                          // more than twice its window and this no peer sends that keeps to it
constexpr std::size_t idle_room = 4096;  // that the buffer of a connection without bytes keeps
constexpr std::size_t most_waiting = 64;                 // callers that have said nothing yet
constexpr Clock::duration patience = 10s;                // with each of them
constexpr std::chrono::milliseconds between_looks{500};  // libutp looks for what got lost no more often

}  // namespace

// libutp forgets its socket in the end, whoever closed it; the client is there for as long as its owner
// wants.
struct VantlowUtpClient {
    VantlowUtpServer* server = nullptr;
    utp_socket* socket = nullptr;  ///< null: it is gone
    void* tag = nullptr;           ///< null: a caller that has said nothing yet
    Clock::time_point came{};
    std::vector<std::uint8_t> unread;
    std::size_t taken = 0;  ///< of unread
    bool has_ended = false;
    bool has_failed = false;
    bool was_read = false;  ///< since the last look

    [[nodiscard]] std::size_t held() const noexcept { return unread.size() - taken; }
};

struct VantlowUtpServer {
    VantlowUtpOwner owner{};
    utp_context* context = nullptr;
    std::size_t sockets = 0;  ///< that libutp has
    std::set<VantlowUtpClient*> clients;
    std::vector<VantlowUtpClient*> waiting;  ///< of them, those that have said nothing yet
    Clock::time_point next_look{};

    VantlowUtpClient* add(utp_socket* socket, void* tag);
    void close(VantlowUtpClient* client) noexcept;
    void fail(VantlowUtpClient& client) const noexcept;
    void take(VantlowUtpClient& client, const std::uint8_t* bytes, std::size_t size);
    void look(Clock::time_point now) noexcept;
    [[nodiscard]] std::size_t window() const noexcept {
        const std::size_t share = all_windows / std::max<std::size_t>(clients.size(), 1);
        return std::clamp(share, smallest_window, largest_window);
    }
};

namespace {

VantlowUtpServer& server_of(const utp_callback_arguments& call) {
    return *static_cast<VantlowUtpServer*>(utp_context_get_userdata(call.context));
}

// Null where its owner has closed it.
VantlowUtpClient* client_of(const utp_callback_arguments& call) {
    return static_cast<VantlowUtpClient*>(utp_get_userdata(call.socket));
}

// The operations that libutp asks of its program. It knows no exception.

uint64 send_datagram(utp_callback_arguments* call) {
    const VantlowUtpOwner& owner = server_of(*call).owner;
    owner.send(owner.context, call->address, static_cast<std::size_t>(call->address_len), call->buf,
               call->len);
    return 0;
}

// Spoofed callers would fill memory: as few as that are waited for.
uint64 refuse_caller(utp_callback_arguments* call) {
    return server_of(*call).waiting.size() >= most_waiting ? 1 : 0;
}

uint64 take_caller(utp_callback_arguments* call) try {
    VantlowUtpServer& server = server_of(*call);
    ++server.sockets;
    server.waiting.reserve(server.waiting.size() + 1);
    server.waiting.push_back(server.add(call->socket, nullptr));
    return 0;
} catch (...) {
    return 0;  // no memory: the socket is nobody's, and libutp ends it when the peer does
}

uint64 take_bytes(utp_callback_arguments* call) try {
    VantlowUtpClient* const client = client_of(*call);
    if (client != nullptr && !client->has_failed) client->server->take(*client, call->buf, call->len);
    return 0;
} catch (...) {
    if (VantlowUtpClient* const client = client_of(*call)) client->server->fail(*client);
    return 0;  // no memory: what came is lost, and so is the connection
}

// The window is what this leaves of the largest one.
uint64 count_unread(utp_callback_arguments* call) {
    const VantlowUtpClient* const client = client_of(*call);
    return client != nullptr ? largest_window - client->server->window() + client->held() : 0;
}

uint64 take_failure(utp_callback_arguments* call) {
    if (VantlowUtpClient* const client = client_of(*call)) client->server->fail(*client);
    return 0;
}

uint64 take_state(utp_callback_arguments* call) {
    VantlowUtpServer& server = server_of(*call);
    if (call->state == UTP_STATE_DESTROYING) --server.sockets;
    VantlowUtpClient* const client = client_of(*call);
    if (client == nullptr) return 0;
    const auto tell = [&](int news) {
        if (client->tag != nullptr) server.owner.news(client->tag, news);
    };
    switch (call->state) {
        case UTP_STATE_CONNECT:
            tell(VANTLOW_UTP_CONNECTED | VANTLOW_UTP_WRITABLE);
            break;
        case UTP_STATE_WRITABLE:
            tell(VANTLOW_UTP_WRITABLE);
            break;
        case UTP_STATE_EOF:
            client->has_ended = true;
            tell(VANTLOW_UTP_READABLE);
            break;
        case UTP_STATE_DESTROYING:
            client->socket = nullptr;
            server.fail(*client);
            break;
        default:
            break;
    }
    return 0;
}

uint64 give_chance(utp_callback_arguments*) {
    std::uint32_t number = 0;
    std::array<std::uint8_t, sizeof number> bytes{};
    // Without chance connections have numbers that others may guess, and go on.
    if (vantlow::login::fill_random(bytes)) std::memcpy(&number, bytes.data(), sizeof number);
    return number;
}

template <class Unit>
uint64 give_time(utp_callback_arguments*) {
    return static_cast<uint64>(std::chrono::duration_cast<Unit>(Clock::now().time_since_epoch()).count());
}

void set_operations(utp_context* context) {
    utp_set_callback(context, UTP_SENDTO, &send_datagram);
    utp_set_callback(context, UTP_ON_FIREWALL, &refuse_caller);
    utp_set_callback(context, UTP_ON_ACCEPT, &take_caller);
    utp_set_callback(context, UTP_ON_READ, &take_bytes);
    utp_set_callback(context, UTP_GET_READ_BUFFER_SIZE, &count_unread);
    utp_set_callback(context, UTP_ON_ERROR, &take_failure);
    utp_set_callback(context, UTP_ON_STATE_CHANGE, &take_state);
    utp_set_callback(context, UTP_GET_RANDOM, &give_chance);
    utp_set_callback(context, UTP_GET_MILLISECONDS, &give_time<std::chrono::milliseconds>);
    utp_set_callback(context, UTP_GET_MICROSECONDS, &give_time<std::chrono::microseconds>);
    utp_context_set_option(context, UTP_RCVBUF, static_cast<int>(largest_window));
}

}  // namespace

VantlowUtpClient* VantlowUtpServer::add(utp_socket* socket, void* tag) {
    auto client = std::make_unique<VantlowUtpClient>();
    client->server = this;
    client->socket = socket;
    client->tag = tag;
    client->came = Clock::now();
    clients.insert(client.get());
    utp_set_userdata(socket, client.get());
    return client.release();
}

void VantlowUtpServer::close(VantlowUtpClient* client) noexcept {
    std::erase(waiting, client);
    clients.erase(client);
    if (client->socket != nullptr) {
        utp_set_userdata(client->socket, nullptr);
        utp_close(client->socket);
    }
    delete client;
}

void VantlowUtpServer::fail(VantlowUtpClient& client) const noexcept {
    const bool was_failed = std::exchange(client.has_failed, true);
    if (!was_failed && client.tag != nullptr) owner.news(client.tag, VANTLOW_UTP_FAILED);
}

void VantlowUtpServer::take(VantlowUtpClient& client, const std::uint8_t* bytes, std::size_t size) {
    if (client.held() + size > 2 * window() + rudeness) return fail(client);
    const bool was_empty = client.held() == 0;
    if (client.taken > 0 && client.taken >= client.held()) {
        client.unread.erase(client.unread.begin(),
                            client.unread.begin() + static_cast<std::ptrdiff_t>(client.taken));
        client.taken = 0;
    }
    client.unread.insert(client.unread.end(), bytes, bytes + size);
    if (client.tag != nullptr) {
        if (was_empty) owner.news(client.tag, VANTLOW_UTP_READABLE);
        return;
    }
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (std::erase(waiting, &client) == 0) return;  // its owner did not want it
    utp_getpeername(client.socket, reinterpret_cast<sockaddr*>(&storage), &length);
    client.tag = owner.called(owner.context, &client, &storage, static_cast<std::size_t>(length));
    if (client.tag == nullptr) client.has_failed = true;
}

// Leaves callers that said nothing, those whom the owner did not want and those that failed meanwhile; gives
// back the room of those that are silent.
void VantlowUtpServer::look(Clock::time_point now) noexcept {
    if (now < next_look) return;
    next_look = now + between_looks;
    for (auto at = clients.begin(); at != clients.end();) {
        VantlowUtpClient* const client = *at++;
        const bool is_late = now - client->came > patience;
        if (client->tag == nullptr && (client->has_failed || client->has_ended || is_late)) {
            close(client);
        } else if (!std::exchange(client->was_read, false) && client->held() == 0 &&
                   client->unread.capacity() > idle_room) {
            std::vector<std::uint8_t>().swap(client->unread);
            client->taken = 0;
        }
    }
}

extern "C" {

VANTLOW_EXPORT UTP_Srv_Init_t UTP_Srv_Init;
VANTLOW_EXPORT UTP_Srv_End_t UTP_Srv_End;
VANTLOW_EXPORT UTP_Srv_Take_t UTP_Srv_Take;
VANTLOW_EXPORT UTP_Srv_Send_t UTP_Srv_Send;
VANTLOW_EXPORT UTP_Cli_Open_t UTP_Cli_Open;
VANTLOW_EXPORT UTP_Cli_Close_t UTP_Cli_Close;
VANTLOW_EXPORT UTP_Cli_Send_t UTP_Cli_Send;
VANTLOW_EXPORT UTP_Cli_Recv_t UTP_Cli_Recv;

VantlowUtpServer* UTP_Srv_Init(const VantlowUtpOwner* owner) try {
    auto server = std::make_unique<VantlowUtpServer>();
    server->owner = *owner;
    server->context = utp_init(2);
    if (server->context == nullptr) return nullptr;
    utp_context_set_userdata(server->context, server.get());
    set_operations(server->context);
    return server.release();
} catch (...) {
    return nullptr;  // no memory
}

void UTP_Srv_End(VantlowUtpServer* server) {
    if (server == nullptr) return;
    while (!server->clients.empty()) server->close(*server->clients.begin());
    utp_destroy(server->context);
    delete server;
}

int UTP_Srv_Take(VantlowUtpServer* server, const void* address, std::size_t address_size,
                 const void* datagram, std::size_t size) try {
    if (size > VANTLOW_UTP_LARGEST) return 0;
    return utp_process_udp(server->context, static_cast<const byte*>(datagram), size,
                           static_cast<const sockaddr*>(address), static_cast<socklen_t>(address_size));
} catch (...) {
    return 1;  // no memory: as if it were lost
}

std::uint32_t UTP_Srv_Send(VantlowUtpServer* server) try {
    utp_issue_deferred_acks(server->context);
    server->look(Clock::now());
    utp_check_timeouts(server->context);
    return server->sockets > 0 ? static_cast<std::uint32_t>(between_looks.count()) : 0;
} catch (...) {
    return static_cast<std::uint32_t>(between_looks.count());  // no memory
}

VantlowUtpClient* UTP_Cli_Open(VantlowUtpServer* server, const void* address, std::size_t address_size,
                               void* tag) try {
    utp_socket* const socket = utp_create_socket(server->context);
    VantlowUtpClient* const client = server->add(socket, tag);
    ++server->sockets;
    utp_connect(socket, static_cast<const sockaddr*>(address), static_cast<socklen_t>(address_size));
    return client;
} catch (...) {
    return nullptr;  // no memory
}

void UTP_Cli_Close(VantlowUtpClient* client) {
    client->server->close(client);
}

std::ptrdiff_t UTP_Cli_Send(VantlowUtpClient* client, const void* bytes, std::size_t size) try {
    if (client->socket == nullptr || client->has_ended || client->has_failed) return -1;
    utp_setsockopt(client->socket, UTP_SNDBUF, static_cast<int>(client->server->window()));
    return utp_write(client->socket, const_cast<void*>(bytes), size);
} catch (...) {
    return -1;  // no memory
}

std::ptrdiff_t UTP_Cli_Recv(VantlowUtpClient* client, void* into, std::size_t room) {
    const std::size_t count = std::min(client->held(), room);
    if (count == 0) return client->has_failed ? -2 : client->has_ended ? -1 : 0;
    std::memcpy(into, client->unread.data() + client->taken, count);
    client->taken += count;
    if (client->held() == 0) {
        client->unread.clear();
        client->taken = 0;
    }
    client->was_read = true;
    if (client->socket != nullptr) utp_read_drained(client->socket);
    return static_cast<std::ptrdiff_t>(count);
}

}  // extern "C"
