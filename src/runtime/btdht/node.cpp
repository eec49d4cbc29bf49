// The node of the distributed hash table, over dht.c: what it asks of the program, its searches, the nodes
// that wait to be asked.
#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netinet/in.h>
#include <sys/socket.h>
#endif

#include <cstdio>

#include <dht.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "runtime/login/primitives.h"
#include "runtime/operations.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Id = std::array<std::uint8_t, 20>;

constexpr std::size_t most_waiting = 256;
constexpr std::size_t most_announces = 500;  // dht.c has 1,024 searches, and two of them a torrent
constexpr std::size_t most_told_nodes = 500;
constexpr Clock::duration between_pings = 50ms;
constexpr Clock::duration again = 25min;
constexpr Clock::duration again_in_vain = 1min;
constexpr Clock::duration until_nodes = 1s;

/// An address as the system's sockets have it.
struct Address {
    sockaddr_storage storage{};
    int size = 0;

    Address(const std::uint8_t* bytes, std::size_t count, std::uint16_t port) {
        if (count == 4) {
            sockaddr_in four{};
            four.sin_family = AF_INET;
            four.sin_port = htons(port);
            std::memcpy(&four.sin_addr, bytes, count);
            std::memcpy(&storage, &four, sizeof four);
            size = sizeof four;
        } else if (count == 16) {
            sockaddr_in6 six{};
            six.sin6_family = AF_INET6;
            six.sin6_port = htons(port);
            std::memcpy(&six.sin6_addr, bytes, count);
            std::memcpy(&storage, &six, sizeof six);
            size = sizeof six;
        }
    }
    [[nodiscard]] const sockaddr* data() const noexcept {
        return reinterpret_cast<const sockaddr*>(&storage);
    }
};

/// The search of a torrent among the nodes of one family.
struct Search {
    int family = AF_INET;
    Clock::time_point next{};
    bool has_found = false;
};

struct Announce {
    std::uint16_t port = 0;
    bool goes_on = true;  ///< false: one search, then it is forgotten
    std::vector<Search> searches;
};

struct Node {
    VantlowDhtOwner owner{};
    int families = 0;
    std::map<Id, Announce> announces;
    Clock::time_point next_ping{};
};

// dht.c has one node a process.
Node* running = nullptr;

std::mutex waiting_mutex;
std::deque<Address> waiting;  ///< nodes that are to be asked

Id id_of(const std::uint8_t* bytes) {
    Id id;
    std::copy_n(bytes, id.size(), id.begin());
    return id;
}

void add_waiting(const std::uint8_t* bytes, std::size_t count, std::uint16_t port) noexcept try {
    if (bytes == nullptr || port == 0) return;
    const std::lock_guard guard(waiting_mutex);
    if (waiting.size() < most_waiting) waiting.emplace_back(bytes, count, port);
} catch (...) {
    return;  // no memory: the node is not asked
}

void tell_peers(const Id& id, std::size_t size, const void* data, std::size_t count) {
    const auto* at = static_cast<const std::uint8_t*>(data);
    for (; count >= size + 2; count -= size + 2, at += size + 2) {
        const auto port = static_cast<std::uint16_t>(at[size] << 8U | at[size + 1]);
        running->owner.found(running->owner.context, id.data(), at, size, port);
    }
}

void note_end(const Id& id, int family) {
    const auto found = running->announces.find(id);
    if (found == running->announces.end()) return;
    for (Search& search : found->second.searches) {
        if (search.family != family) continue;
        if (!search.has_found) search.next = std::min(search.next, Clock::now() + again_in_vain);
    }
}

void note_found(const Id& id, int family) {
    const auto found = running->announces.find(id);
    if (found == running->announces.end()) return;
    for (Search& search : found->second.searches) {
        if (search.family == family) search.has_found = true;
    }
}

// The news of searches. Called by dht.c, which knows no exception.
void hear(void*, int event, const unsigned char* info_hash, const void* data, std::size_t size) {
    const Id id = id_of(info_hash);
    switch (event) {
        case DHT_EVENT_VALUES:
            note_found(id, AF_INET);
            return tell_peers(id, 4, data, size);
        case DHT_EVENT_VALUES6:
            note_found(id, AF_INET6);
            return tell_peers(id, 16, data, size);
        case DHT_EVENT_SEARCH_DONE:
            return note_end(id, AF_INET);
        case DHT_EVENT_SEARCH_DONE6:
            return note_end(id, AF_INET6);
        default:
            return;
    }
}

Clock::time_point ping_one(Clock::time_point now) {
    const std::lock_guard guard(waiting_mutex);
    if (waiting.empty()) return Clock::time_point::max();
    if (now < running->next_ping) return running->next_ping;
    const Address address = waiting.front();
    waiting.pop_front();
    dht_ping_node(address.data(), address.size);
    running->next_ping = now + between_pings;
    return running->next_ping;
}

bool has_nodes(int family) {
    int good = 0;
    int dubious = 0;
    dht_nodes(family, &good, &dubious, nullptr, nullptr);
    return good > 0;
}

void search(const Id& id, const Announce& announce, Search& search, Clock::time_point now) {
    if (!has_nodes(search.family)) {
        search.next = now + until_nodes;
        return;
    }
    search.has_found = false;
    search.next = now + again;
    if (dht_search(id.data(), announce.port, search.family, hear, nullptr) < 0)
        search.next = now + again_in_vain;
}

Clock::time_point search_due(Clock::time_point now) {
    auto next = Clock::time_point::max();
    for (auto at = running->announces.begin(); at != running->announces.end();) {
        auto& [id, announce] = *at;
        bool waits = announce.goes_on;
        for (Search& one : announce.searches) {
            if (one.next <= now) search(id, announce, one, now);
            next = std::min(next, one.next);
            waits = waits || one.next < now + again;
        }
        at = waits ? std::next(at) : running->announces.erase(at);
    }
    return next;
}

int begin_searches(const std::uint8_t* info_hash, std::uint16_t port, bool goes_on) {
    if (running == nullptr || running->announces.size() >= most_announces) return 0;
    Announce announce{port, goes_on, {}};
    if ((running->families & VANTLOW_DHT_IPV4) != 0) announce.searches.push_back({AF_INET, {}, false});
    if ((running->families & VANTLOW_DHT_IPV6) != 0) announce.searches.push_back({AF_INET6, {}, false});
    running->announces[id_of(info_hash)] = std::move(announce);
    return 1;
}

template <class Sockaddr, class Host>
std::size_t write_nodes(const std::vector<Sockaddr>& nodes, int count, Host host, std::uint8_t* into,
                        std::size_t room) {
    std::size_t written = 0;
    for (int i = 0; i < count; ++i) {
        const auto [address, size, port] = host(nodes[static_cast<std::size_t>(i)]);
        if (room - written < size + 2) break;
        std::memcpy(into + written, address, size);
        std::memcpy(into + written + size, &port, 2);
        written += size + 2;
    }
    return written;
}

struct HostPort {
    const void* address;
    std::size_t size;
    std::uint16_t port;  ///< in network order
};

}  // namespace

extern "C" {

VANTLOW_EXPORT BTDHT_Start_t BTDHT_Start;
VANTLOW_EXPORT BTDHT_Stop_t BTDHT_Stop;
VANTLOW_EXPORT BTDHT_StartAnnounce_t BTDHT_StartAnnounce;
VANTLOW_EXPORT BTDHT_StopAnnounce_t BTDHT_StopAnnounce;
VANTLOW_EXPORT BTDHT_GetPeers_t BTDHT_GetPeers;
VANTLOW_EXPORT BTDHT_AddNode_t BTDHT_AddNode;
VANTLOW_EXPORT BTDHT_AddNodeV6_t BTDHT_AddNodeV6;
VANTLOW_EXPORT BTDHT_Work_t BTDHT_Work;
VANTLOW_EXPORT BTDHT_Nodes_t BTDHT_Nodes;

// The operations that dht.c asks of its program.

int dht_sendto(int, const void* bytes, int size, int, const sockaddr* to, int) {
    std::array<std::uint8_t, 16> address{};
    std::size_t address_size = 4;
    std::uint16_t port = 0;
    if (to->sa_family == AF_INET) {
        sockaddr_in four{};
        std::memcpy(&four, to, sizeof four);
        std::memcpy(address.data(), &four.sin_addr, address_size);
        port = ntohs(four.sin_port);
    } else {
        sockaddr_in6 six{};
        std::memcpy(&six, to, sizeof six);
        address_size = 16;
        std::memcpy(address.data(), &six.sin6_addr, address_size);
        port = ntohs(six.sin6_port);
    }
    const VantlowDhtOwner& owner = running->owner;
    if (owner.send(owner.context, address.data(), address_size, port, bytes,
                   static_cast<std::size_t>(size)) != 0)
        return size;
    errno = EAGAIN;
    return -1;
}

int dht_blacklisted(const sockaddr*, int) {
    return 0;
}

// The tokens of announces, which nobody else can make; dht.c wants 8 bytes.
void dht_hash(void* out, int size, const void* v1, int n1, const void* v2, int n2, const void* v3,
              int n3) try {
    using vantlow::login::View;
    const auto view = [](const void* bytes, int count) {
        return View(static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count));
    };
    const auto digest =
        vantlow::login::digest(vantlow::login::Hash::sha256, {view(v1, n1), view(v2, n2), view(v3, n3)});
    std::memset(out, 0, static_cast<std::size_t>(size));
    std::memcpy(out, digest.data(), std::min(digest.size(), static_cast<std::size_t>(size)));
} catch (...) {
    // No memory: a token that nobody can give back.
    static_cast<void>(dht_random_bytes(out, static_cast<std::size_t>(size)));
}

// In the place of random() and rand(): see the recipe.
extern "C" long vantlow_dht_chance();
long vantlow_dht_chance() {
    std::array<std::uint8_t, 4> bytes{};
    if (!vantlow::login::fill_random(bytes)) return 0;
    return (bytes[0] & 0x7F) * 0x1000000L + bytes[1] * 0x10000L + bytes[2] * 0x100L + bytes[3];
}

int dht_random_bytes(void* out, std::size_t size) {
    return vantlow::login::fill_random({static_cast<std::uint8_t*>(out), size}) ? static_cast<int>(size) : -1;
}

// The operations.

int BTDHT_Start(const VantlowDhtOwner* owner, const std::uint8_t* id, int families) try {
    if (running != nullptr || owner == nullptr || id == nullptr) return 0;
    auto* const node = new Node{*owner, families, {}, {}};
    // It never uses the numbers: what it sends goes through dht_sendto().
    const int four = (families & VANTLOW_DHT_IPV4) != 0 ? 4 : -1;
    const int six = (families & VANTLOW_DHT_IPV6) != 0 ? 6 : -1;
    constexpr std::array<unsigned char, 4> version{'V', 'L', 2, 95};
    if (dht_init(four, six, id, version.data()) < 0) {
        delete node;
        return 0;
    }
    running = node;
    return 1;
} catch (...) {
    return 0;  // no memory
}

void BTDHT_Stop(void) {
    if (running == nullptr) return;
    dht_uninit();
    delete running;
    running = nullptr;
    const std::lock_guard guard(waiting_mutex);
    waiting.clear();
}

int BTDHT_StartAnnounce(const std::uint8_t* info_hash, std::uint16_t port) try {
    return info_hash != nullptr ? begin_searches(info_hash, port, true) : 0;
} catch (...) {
    return 0;  // no memory
}

void BTDHT_StopAnnounce(const std::uint8_t* info_hash) {
    if (running != nullptr && info_hash != nullptr) running->announces.erase(id_of(info_hash));
}

int BTDHT_GetPeers(const std::uint8_t* info_hash) try {
    if (running == nullptr || info_hash == nullptr) return 0;
    const auto known = running->announces.find(id_of(info_hash));
    if (known == running->announces.end()) return begin_searches(info_hash, 0, false);
    for (Search& search : known->second.searches) search.next = {};
    return 1;
} catch (...) {
    return 0;  // no memory
}

void BTDHT_AddNode(const std::uint8_t* address, std::uint16_t port) {
    add_waiting(address, 4, port);
}

void BTDHT_AddNodeV6(const std::uint8_t* address, std::uint16_t port) {
    add_waiting(address, 16, port);
}

std::uint32_t BTDHT_Work(const std::uint8_t* address, std::size_t address_size, std::uint16_t port,
                         const void* datagram, std::size_t size) try {
    constexpr Clock::duration longest = 1min;
    if (running == nullptr) return 60'000;
    std::array<char, VANTLOW_DHT_LARGEST + 1> bytes{};  // dht.c wants a zero behind them
    std::time_t seconds = 0;
    if (datagram == nullptr || size == 0 || size > VANTLOW_DHT_LARGEST) {
        dht_periodic(nullptr, 0, nullptr, 0, &seconds, hear, nullptr);
    } else {
        const Address from(address, address_size, port);
        std::memcpy(bytes.data(), datagram, size);
        dht_periodic(bytes.data(), size, from.data(), from.size, &seconds, hear, nullptr);
    }
    const auto now = Clock::now();
    Clock::time_point next = now + std::min<Clock::duration>(std::chrono::seconds(seconds), longest);
    next = std::min({next, ping_one(now), search_due(now)});
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
    return static_cast<std::uint32_t>(std::max<std::int64_t>(left, 1));
} catch (...) {
    return 1000;  // no memory
}

std::size_t BTDHT_Nodes(int family, std::uint8_t* into, std::size_t room) try {
    if (running == nullptr || into == nullptr) return 0;
    std::vector<sockaddr_in> four(most_told_nodes);
    std::vector<sockaddr_in6> six(most_told_nodes);
    int fours = static_cast<int>(four.size());
    int sixes = static_cast<int>(six.size());
    dht_get_nodes(four.data(), &fours, six.data(), &sixes);
    if (family == VANTLOW_DHT_IPV4)
        return write_nodes(
            four, fours,
            [](const sockaddr_in& a) {
                return HostPort{&a.sin_addr, 4, a.sin_port};
            },
            into, room);
    return write_nodes(
        six, sixes,
        [](const sockaddr_in6& a) {
            return HostPort{&a.sin6_addr, 16, a.sin6_port};
        },
        into, room);
} catch (...) {
    return 0;  // no memory
}

}  // extern "C"
