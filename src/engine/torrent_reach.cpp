#include "engine/torrent_reach.h"

#include <utility>

#include "base/text.h"
#include "engine/run_options.h"
#include "transfer/http/auth_scheme.h"

namespace vantlow {
namespace {

constexpr int backlog = 64;
// Between two look-ups of a proxy's name, which nobody knows while the machine has no network.
constexpr std::chrono::seconds proxy_pause{30};
// Between two looks at an interface that is not there.
constexpr std::chrono::seconds way_pause{1};
// Behind a proxy nobody can call. Trackers are told a port all the same, because without one many of them
// answer nothing.
constexpr std::uint16_t nobodys_port = 1;

}  // namespace

// True where it is another one than before. What becomes of it is logged once.
bool TorrentReach::look_at_way() {
    auto state = way_.look();
    if (!state) {
        const std::string why = state.failure().message() + " The torrent waits for it.";
        if (std::exchange(way_trouble_, why) != why) log_.line(Direction::error, why);
        return false;
    }
    way_trouble_.clear();
    if (way_state_ == *state) return false;
    way_state_ = *std::move(state);
    log_.line(Direction::note,
              "All packets of the torrent go by the network interface " + way_state_->device + ".");
    return true;
}

Result TorrentReach::wait_for_way(const std::function<void(const std::string& why)>& tell) {
    if (way_.is_any()) return {};
    while (!look_at_way()) {
        tell(way_trouble_);
        if (stop_.wait_for(way_pause)) return stop_.reason();
    }
    return {};
}

bool TorrentReach::follow_way() {
    if (way_.is_any() || !look_at_way()) return false;
    if (is_behind_proxy()) return true;
    listeners_.clear();
    listen();
    if (datagrams_) {
        if (const Result bound = datagrams_->rebind(port_); !bound.ok())
            log_.line(Direction::note, "There is no uTP: " + bound.message());
    }
    return true;
}

Result TorrentReach::take_proxy(ProxyPlan proxy) {
    proxy_ = std::move(proxy);
    if (!proxy_.trouble.empty()) return {Code::tunnel_refused, proxy_.trouble};
    if (!proxy_.is_used()) return {};
    proxy_.resolve_here = !services_.settings.flag(setting::proxy_resolves);
    if (!proxy_.user.empty())
        add_login(proxy_, services_.libraries, &services_.connections.memory.of<LoginMemory>());
    return {};
}

Result TorrentReach::open(net::Loop& loop, Caller on_caller) {
    loop_ = &loop;
    on_caller_ = std::move(on_caller);
    if (proxy_.is_used()) return find_proxy();
    listen();
    if (services_.settings.flag(setting::utp)) open_datagrams();
    return {};
}

void TorrentReach::close_port() {
    listeners_.clear();
    if (datagrams_) datagrams_->refuse_callers();
}

void TorrentReach::close() {
    close_port();
    tunnels_.reset();
    both_.reset();
    datagrams_.reset();
    port_held_ = {};
    datagram_port_held_ = {};
    node_port_held_ = {};
    loop_ = nullptr;
}

net::Network& TorrentReach::network() noexcept {
    if (tunnels_) return *tunnels_;
    return both_ ? static_cast<net::Network&>(*both_) : *loop_;
}

std::uint16_t TorrentReach::told_port() const noexcept {
    return is_behind_proxy() ? nobodys_port : port_;
}

void TorrentReach::listen() {
    const auto wanted = static_cast<std::uint16_t>(services_.settings.number(setting::peer_port));
    Result failure;
    for (const char* const any : {"0.0.0.0", "::"}) {
        const std::uint16_t port = port_ != 0 ? port_ : wanted;
        auto listener = loop_->listen(*SocketAddress::from_literal(any, port), backlog);
        if (!listener && port_ == 0 && wanted != 0)
            listener = loop_->listen(*SocketAddress::from_literal(any, 0), backlog);
        if (!listener) {
            if (failure.ok()) failure = listener.failure();
            continue;
        }
        if (const auto at = (*listener)->address()) port_ = at->port();
        listeners_.push_back(*std::move(listener));
    }
    if (listeners_.empty()) {
        log_.line(Direction::error, "Peers cannot call: " + failure.message());
        return;
    }
    for (const auto& listener : listeners_) accept(*listener);
    hold(port_held_, PortMapper::Transport::tcp, port_);
}

// At the same number as TCP, which trackers are told.
void TorrentReach::open_datagrams() {
    datagrams_.emplace(services_.libraries.btdht, *loop_);
    const Result opened = datagrams_->open(
        port_, [this](std::unique_ptr<net::Stream> stream) { on_caller_(std::move(stream)); });
    if (!opened.ok()) {
        log_.line(Direction::note, "There is no uTP: " + opened.message());
        return datagrams_.reset();
    }
    both_.emplace(*loop_, *datagrams_);
    hold(datagram_port_held_, PortMapper::Transport::udp, port_);
}

void TorrentReach::accept(net::Listener& listener) {
    listener.accept([this, &listener](Outcome<std::unique_ptr<net::Stream>> stream) {
        if (stream) on_caller_(*std::move(stream));
        accept(listener);
    });
}

Result TorrentReach::find_proxy() {
    const std::string name = proxy_.host + ":" + std::to_string(proxy_.port);
    log_.line(Direction::note, "Peers and trackers are reached through the proxy " + name +
                                   "; peers cannot call, and are looked for nowhere else.");
    Outcome<std::vector<SocketAddress>> at = Result(Code::transient);
    for (bool is_first = true; !stop_.requested(); is_first = false) {
        at = services_.connections.resolver.resolve(proxy_.host, proxy_.port, stop_, way_);
        if (at.ok()) break;
        if (is_first) log_.line(Direction::error, at.failure().message());
        stop_.wait_for(proxy_pause);
    }
    if (!at.ok()) return stop_.reason();
    const auto trouble = [this](const Result& result) {
        if (result.message() == proxy_said_) return;
        proxy_said_ = result.message();
        log_.line(Direction::error, "The proxy does not serve: " + proxy_said_);
    };
    tunnels_.emplace(*loop_, proxy_, *std::move(at),
                     std::chrono::seconds(services_.settings.number(setting::connect_timeout)), trouble);
    return {};
}

void TorrentReach::hold(OpenPort& held, PortMapper::Transport transport, std::uint16_t port) {
    // A router is looked for by every interface.
    const bool is_wanted = port != 0 && way_.is_any() && services_.settings.flag(setting::port_mapping);
    const auto hold_by = [&](PortMapper* mapper) {
        return is_wanted && mapper != nullptr ? HeldPort(*mapper, {transport, port}) : HeldPort();
    };
    held.four = hold_by(shared_.port_mapper);
    held.six = hold_by(shared_.firewall_opener);
}

void TorrentReach::log_router() {
    const auto tell = [this](const HeldPort& held, std::string& said, const std::string& of_other) {
        const std::string text = held.state().text;
        if (text.empty() || text == said) return;
        said = text;
        // Where there is no router it is the same for both ports.
        if (text != of_other) log_.line(Direction::note, text);
    };
    for (auto [one, other] :
         {std::pair(&port_held_, &node_port_held_), std::pair(&node_port_held_, &port_held_)}) {
        tell(one->four, one->said_of_four, other->said_of_four);
        tell(one->six, one->said_of_six, other->said_of_six);
    }
}

bool TorrentReach::has_new_filter() {
    if (shared_.ip_filter == nullptr) return false;
    auto current = shared_.ip_filter->current();
    if (current == filter_) return false;
    filter_ = std::move(current);
    if (datagrams_) datagrams_->set_filter(filter_);
    if (!filter_) {
        log_.line(Direction::note, "No addresses are blocked any more.");
        return true;
    }
    const IpFilter::Reading& reading = filter_->reading();
    log_.line(Direction::note, "Peers are left whose addresses are blocked: " +
                                   std::to_string(filter_->ranges()) + " ranges.");
    if (!reading.failure.empty()) log_.line(Direction::error, "Blocked addresses: " + reading.failure);
    if (reading.bad_lines > 0) {
        log_.line(Direction::error, "Blocked addresses: " + std::to_string(reading.bad_lines) +
                                        " lines cannot be read, the first is line " +
                                        std::to_string(reading.first_bad) + ".");
    }
    if (reading.is_full)
        log_.line(Direction::error, "Blocked addresses: there are more ranges than can be kept.");
    return true;
}

}  // namespace vantlow
