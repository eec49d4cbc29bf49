#include "bt/dht_service.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "bt/bencode.h"
#include "bt/torrent_settings.h"
#include "bt/wire.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "store/job.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr int reads_at_once = 64;  // before others have their turn
constexpr Clock::duration a_rest = 1s;
constexpr Clock::duration look_time = 5s;
constexpr Clock::duration save_interval = 10min;
constexpr std::chrono::seconds patience_with_saved{10};  // before others are asked for nodes
constexpr std::chrono::seconds first_pause{30};
constexpr std::chrono::seconds longest_pause{600};
constexpr std::size_t most_kept = 100;  // of each kind of addresses
constexpr std::size_t largest_file = 64 * 1024;
constexpr std::size_t compact_ipv4 = 6;
constexpr std::size_t compact_ipv6 = 18;

std::u16string key_file(const std::u16string& folder) {
    return join_path(folder, u"dhtkey.dat");
}

std::u16string nodes_file(const std::u16string& folder) {
    return join_path(folder, u"dhtnodes.dat");
}

const std::uint8_t* bytes_of(std::string_view text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

SocketAddress address_of(const std::uint8_t* bytes, std::size_t size, std::uint16_t port) {
    std::string compact(reinterpret_cast<const char*>(bytes), size);
    put_number(compact, port);
    return size == 4 ? ipv4_peer(compact) : ipv6_peer(compact);
}

std::vector<SocketAddress> addresses_of(const CBEDictionary& kept) {
    std::vector<SocketAddress> addresses;
    const auto read = [&](std::string_view key, std::size_t size) {
        const CBEString* const list = kept.find_string(key);
        const std::string_view bytes = list != nullptr ? std::string_view(list->data) : std::string_view();
        for (std::size_t i = 0; i < most_kept && (i + 1) * size <= bytes.size(); ++i) {
            const std::string_view one = bytes.substr(i * size, size);
            addresses.push_back(size == compact_ipv4 ? ipv4_peer(one) : ipv6_peer(one));
        }
    };
    read("nodes", compact_ipv4);
    read("nodes6", compact_ipv6);
    return addresses;
}

}  // namespace

DhtService::DhtService(const BtdhtTable& library, const Settings& settings, Resolver& resolver,
                       std::u16string folder, IpFilterKeeper* filter)
    : library_(library),
      settings_(settings),
      resolver_(resolver),
      folder_(std::move(folder)),
      filter_(filter) {}

DhtService::~DhtService() {
    const MutexLock life(life_);
    stop();
}

Result DhtService::begin(const InfoHash& torrent, std::uint16_t port, PeerStore& found,
                         const NetworkWay& way) {
    const MutexLock life(life_);
    if (loop_ && way_ != way)
        return {Code::transient, "Its node is held to another interface as long as other torrents run."};
    if (!loop_) {
        if (Result result = start(way); !result.ok()) {
            stop();
            return result;
        }
    }
    {
        const MutexLock guard(mutex_);
        torrents_.emplace(torrent, &found);
    }
    const bool is_taken = loop_->post([this, torrent, port] {
        library_.BTDHT_StartAnnounce(reinterpret_cast<const std::uint8_t*>(torrent.data()), port);
        work(nullptr, {});
    });
    if (is_taken) return {};
    const MutexLock guard(mutex_);
    const auto [first, last] = torrents_.equal_range(torrent);
    torrents_.erase(std::find_if(first, last, [&](const auto& entry) { return entry.second == &found; }));
    return {Code::transient, "The node does not work any more."};
}

void DhtService::end(const InfoHash& torrent, PeerStore& found) {
    const MutexLock life(life_);
    bool is_last = false;
    {
        const MutexLock guard(mutex_);
        const auto [first, last] = torrents_.equal_range(torrent);
        const auto at = std::find_if(first, last, [&](const auto& entry) { return entry.second == &found; });
        if (at == last) return;
        torrents_.erase(at);
        is_last = torrents_.empty();
        if (torrents_.contains(torrent)) return;
    }
    if (is_last) return stop();
    loop_->post([this, torrent] {
        library_.BTDHT_StopAnnounce(reinterpret_cast<const std::uint8_t*>(torrent.data()));
    });
}

void DhtService::search_again(const InfoHash& torrent) {
    const MutexLock life(life_);
    if (!loop_) return;
    loop_->post([this, torrent] {
        library_.BTDHT_GetPeers(reinterpret_cast<const std::uint8_t*>(torrent.data()));
        work(nullptr, {});
    });
}

void DhtService::add_nodes(std::span<const SocketAddress> nodes) const {
    for (const SocketAddress& node : nodes) {
        auto* const add = node.is_ipv6() ? library_.BTDHT_AddNodeV6 : library_.BTDHT_AddNode;
        if (add != nullptr && node.port() != 0) add(bytes_of(address_bytes(node)), node.port());
    }
}

Result DhtService::bind_ports() {
    four_.reset();
    six_.reset();
    auto four = loop_->bind(*SocketAddress::from_literal("0.0.0.0", port_));
    if (four) {
        four_ = *std::move(four);
        if (const auto at = four_->address()) port_ = at->port();
    }
    auto six = loop_->bind(*SocketAddress::from_literal("::", port_));
    if (six) {
        six_ = *std::move(six);
        if (const auto at = six_->address(); at && port_ == 0) port_ = at->port();
    }
    return four_ || six_ ? Result() : four.failure();
}

Result DhtService::start(const NetworkWay& way) {
    if (library_.BTDHT_Start == nullptr || library_.BTDHT_Work == nullptr)
        return {Code::unsupported, missing_library_text("libBTDHT")};
    way_ = way;
    auto loop = net::make_loop({.way = way_});
    if (!loop) return loop.failure();
    loop_ = *std::move(loop);
    if (Result result = bind_ports(); !result.ok()) return result;
    if (!way_.is_any()) {
        if (auto state = way_.look()) way_state_ = *std::move(state);
    }
    load_id();
    VantlowDhtOwner owner{};
    owner.context = this;
    owner.send = [](void* self, const std::uint8_t* address, std::size_t size, std::uint16_t port,
                    const void* datagram, std::size_t bytes) {
        return static_cast<DhtService*>(self)->send(address_of(address, size, port),
                                                    {static_cast<const std::byte*>(datagram), bytes});
    };
    owner.found = [](void* self, const std::uint8_t* hash, const std::uint8_t* address, std::size_t size,
                     std::uint16_t port) {
        InfoHash torrent;
        std::copy_n(reinterpret_cast<const std::byte*>(hash), torrent.size(), torrent.begin());
        static_cast<DhtService*>(self)->found(torrent, address_of(address, size, port));
    };
    const int families = (four_ ? VANTLOW_DHT_IPV4 : 0) | (six_ ? VANTLOW_DHT_IPV6 : 0);
    if (library_.BTDHT_Start(&owner, id_.data(), families) == 0)
        return {Code::transient, "The node of the distributed hash table cannot be started."};
    has_node_ = true;
    work_timer_.emplace(loop_->timers());
    rest_timer_.emplace(loop_->timers());
    look_timer_.emplace(loop_->timers());
    stop_ = std::make_unique<StopSource>();
    if (Result result = start_thread(node_, [this] { run(); }); !result.ok()) return result;
    return start_thread(names_, [this, stop = stop_.get()] { look_up_nodes(*stop); });
}

void DhtService::stop() {
    if (stop_) stop_->request();
    if (loop_) loop_->stop();
    for (std::thread* thread : {&node_, &names_}) {
        if (thread->joinable()) thread->join();
    }
    if (std::exchange(has_node_, false)) library_.BTDHT_Stop();
    work_timer_.reset();
    rest_timer_.reset();
    look_timer_.reset();
    four_.reset();
    six_.reset();
    loop_.reset();
    stop_.reset();
    port_ = 0;
    has_nodes_ = false;
}

// The node keeps its id for as long as the data folder is there: others know it by that.
void DhtService::load_id() {
    std::vector<std::byte> bytes;
    if (!folder_.empty() && read_file(key_file(folder_), id_.size(), bytes).ok() &&
        bytes.size() == id_.size()) {
        std::transform(bytes.begin(), bytes.end(), id_.begin(),
                       [](std::byte byte) { return static_cast<std::uint8_t>(byte); });
        return;
    }
    const InfoHash random = hash_of(guid_text(new_guid()) + guid_text(new_guid()));
    std::transform(random.begin(), random.end(), id_.begin(),
                   [](std::byte byte) { return static_cast<std::uint8_t>(byte); });
    // One that cannot be kept serves until the end.
    if (!folder_.empty() && path_kind(folder_) == PathKind::folder)
        static_cast<void>(write_file_atomically(key_file(folder_), random, Privacy::owner_only));
}

void DhtService::run() {
    next_save_ = Clock::now() + save_interval;
    look_now_and_then();
    listen();
    work_timer_->start(loop_->now(), [this] { work(nullptr, {}); });
    static_cast<void>(loop_->run());
    save_nodes();
}

void DhtService::listen() {
    for (net::Datagrams* datagrams : {four_.get(), six_.get()}) {
        if (datagrams != nullptr) datagrams->when_readable([this, datagrams] { read_some(*datagrams); });
    }
}

void DhtService::read_some(net::Datagrams& datagrams) {
    std::array<std::byte, VANTLOW_DHT_LARGEST + 1> room;
    for (int reads = 0; reads < reads_at_once; ++reads) {
        SocketAddress from;
        const net::Step step = datagrams.receive(room, from);
        if (step.state == net::Step::State::again) break;
        if (step.state != net::Step::State::moved)
            return rest_timer_->start(loop_->now() + a_rest, [this] { listen(); });
        if (step.bytes > 0 && !is_blocked(from)) work(&from, std::span(room).first(step.bytes));
    }
    datagrams.when_readable([this, &datagrams] { read_some(datagrams); });
}

void DhtService::work(const SocketAddress* from, std::span<const std::byte> datagram) {
    const std::string address = from != nullptr ? address_bytes(*from) : std::string();
    speaker_ = from;
    const std::uint32_t wait = library_.BTDHT_Work(
        bytes_of(address), address.size(), from != nullptr ? from->port() : std::uint16_t{0},
        from != nullptr ? datagram.data() : nullptr, datagram.size());
    speaker_ = nullptr;
    work_timer_->start(loop_->now() + std::chrono::milliseconds(wait), [this] { work(nullptr, {}); });
}

int DhtService::send(const SocketAddress& to, std::span<const std::byte> datagram) {
    net::Datagrams* const datagrams = to.is_ipv6() ? six_.get() : four_.get();
    if (datagrams == nullptr) return 0;
    if (is_blocked(to)) return 1;  // as if it were lost
    return datagrams->send(datagram, to).state == net::Step::State::moved ? 1 : 0;
}

// Those that this node itself keeps were heard here.
void DhtService::found(const InfoHash& torrent, const SocketAddress& peer) {
    if (!may_know(speaker_ != nullptr ? *speaker_ : peer, peer)) return;
    const MutexLock guard(mutex_);
    const auto [first, last] = torrents_.equal_range(torrent);
    for (auto at = first; at != last; ++at) at->second->add({&peer, 1});
}

bool DhtService::load_nodes() const {
    std::vector<std::byte> bytes;
    if (folder_.empty() || !read_file(nodes_file(folder_), largest_file, bytes).ok()) return false;
    CBEncode parser;
    parser.load_memory(bytes);
    const auto kept = parser.parse_document();
    if (!kept) return false;
    const auto addresses = addresses_of(*kept);
    add_nodes(addresses);
    return !addresses.empty();
}

// Where none answers now, those of the last time may still be the better ones.
void DhtService::save_nodes() const {
    if (folder_.empty() || path_kind(folder_) != PathKind::folder) return;
    CBEDictionary kept;
    bool is_any = false;
    const auto add = [&](std::string_view key, int family, std::size_t size) {
        std::vector<std::uint8_t> room(most_kept * size);
        const std::size_t count = library_.BTDHT_Nodes(family, room.data(), room.size());
        is_any = is_any || count > 0;
        kept.add(key, std::string_view(reinterpret_cast<const char*>(room.data()), count));
    };
    add("nodes", VANTLOW_DHT_IPV4, compact_ipv4);
    add("nodes6", VANTLOW_DHT_IPV6, compact_ipv6);
    if (!is_any) return;
    CBEncode writer;
    writer.write(&kept);
    static_cast<void>(write_file_atomically(nodes_file(folder_), std::as_bytes(std::span(writer.output())),
                                            Privacy::owner_only));
}

void DhtService::look_now_and_then() {
    if (filter_ != nullptr) blocked_ = filter_->current();
    follow_way();
    std::array<std::uint8_t, compact_ipv6> room;
    has_nodes_ = library_.BTDHT_Nodes(VANTLOW_DHT_IPV4, room.data(), room.size()) > 0 ||
                 library_.BTDHT_Nodes(VANTLOW_DHT_IPV6, room.data(), room.size()) > 0;
    if (Clock::now() >= next_save_) {
        next_save_ = Clock::now() + save_interval;
        save_nodes();
    }
    look_timer_->start(loop_->now() + look_time, [this] { look_now_and_then(); });
}

// The sockets of an interface that went are of no use when it comes back.
void DhtService::follow_way() {
    if (way_.is_any()) return;
    auto state = way_.look();
    if (!state || way_state_ == *state) return;
    way_state_ = *std::move(state);
    if (bind_ports().ok()) listen();
}

// Well-known nodes are asked only while no other answers: they are few, and everybody asks them.
void DhtService::look_up_nodes(const StopSource& stop) const {
    std::chrono::seconds pause = load_nodes() ? patience_with_saved : std::chrono::seconds(0);
    std::chrono::seconds next = first_pause;
    while (!stop.wait_for(pause)) {
        pause = std::exchange(next, std::min(next * 2, longest_pause));
        if (has_nodes_) continue;
        for (const auto& [host, port] : dht_routers(to_utf8(settings_.text(setting::dht_nodes)))) {
            const auto addresses = resolver_.resolve(host, port, stop, way_);
            if (addresses) add_nodes(*addresses);
            if (stop.requested()) return;
        }
    }
}

std::vector<std::pair<std::string, std::uint16_t>> dht_routers(std::string_view list) {
    std::vector<std::pair<std::string, std::uint16_t>> routers;
    for (const std::string_view entry : split(list, '|')) {
        const std::string_view one = trim(entry);
        const auto colon = one.rfind(':');
        if (colon == std::string_view::npos) continue;
        std::string_view host = one.substr(0, colon);
        if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
        const auto port = parse_decimal(one.substr(colon + 1));
        if (host.empty() || !port || *port <= 0 || *port > 65535) continue;
        routers.emplace_back(host, static_cast<std::uint16_t>(*port));
    }
    return routers;
}

}  // namespace vantlow
