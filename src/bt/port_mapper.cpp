#include "bt/port_mapper.h"

#include <algorithm>
#include <array>

#include "platform/thread.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr const char* order_name = "Vantlow";
// Two for each torrent; a router has room for some dozens.
constexpr std::size_t most_ports = 200;
// Where nothing is due the thread looks again after a day.
constexpr Clock::duration longest_wait = 24h;

std::string words_of(const PortMapper::Port& port) {
    return std::string(port.first == PortMapper::Transport::tcp ? "TCP" : "UDP") + " port " +
           std::to_string(port.second);
}

}  // namespace

PortMapper::~PortMapper() {
    end();
    if (thread_.joinable()) thread_.join();
}

void PortMapper::end() {
    {
        const MutexLock guard(mutex_);
        if (end_) return;
        end_ = Clock::now() + times_.goodbye;
        for (auto& [port, entry] : ports_) entry.holders = 0;
        is_changed_ = true;
    }
    stop_.request();
    changed_.notify_one();
}

void PortMapper::hold(const Port& port) {
    const MutexLock guard(mutex_);
    if (end_ || (!ports_.contains(port) && ports_.size() >= most_ports)) return;
    Entry& entry = ports_[port];
    if (++entry.holders > 1) return;
    entry.due = Clock::now();
    if (!has_library()) {
        entry.state.text = missing_library_text("libportmap");
        return;
    }
    is_changed_ = true;
    changed_.notify_one();
    if (runs_ || stop_.requested()) return;
    runs_ = start_thread(thread_, [this] { run(); }).ok();
}

void PortMapper::let_go(const Port& port) {
    const MutexLock guard(mutex_);
    const auto at = ports_.find(port);
    if (at == ports_.end() || at->second.holders == 0) return;
    if (--at->second.holders > 0) return;
    // The thread may be asking the router for it right now.
    if (!at->second.state.is_open && !runs_) {
        ports_.erase(at);
        return;
    }
    is_changed_ = true;
    changed_.notify_one();
}

PortMapper::State PortMapper::state(const Port& port) const {
    const MutexLock guard(mutex_);
    const auto at = ports_.find(port);
    return at == ports_.end() ? State() : at->second.state;
}

bool PortMapper::next_order(Port& port, bool& opens, Clock::duration& wait) {
    const auto now = Clock::now();
    wait = longest_wait;
    const MutexLock guard(mutex_);
    is_changed_ = false;
    for (const auto& [one, entry] : ports_) {
        opens = entry.holders > 0;
        if (!opens || entry.due <= now) {
            port = one;
            return true;
        }
        wait = std::min<Clock::duration>(wait, entry.due - now);
    }
    return false;
}

void PortMapper::note(const Port& port, State state, Clock::duration due) {
    const MutexLock guard(mutex_);
    const auto at = ports_.find(port);
    if (at == ports_.end()) return;
    at->second.state = std::move(state);
    at->second.due = Clock::now() + due;
}

void PortMapper::find_router() {
    const auto stopped = [](void* self) { return static_cast<PortMapper*>(self)->stop_.requested() ? 1 : 0; };
    int has_address = 1;
    router_ = calls_ == Calls::ipv4 ? library_.PortMap_Find(stopped, this)
                                    : library_.PortMap_FindFirewall(stopped, this, &has_address);
    has_address_ = has_address != 0;
    if (router_ == nullptr) return;
    std::array<char, VANTLOW_ROUTER_ROOM> protocol{};
    std::array<char, VANTLOW_ROUTER_ROOM> address{};
    library_.PortMap_Describe(router_, protocol.data(), address.data(), protocol.size());
    router_name_ = std::string("router (") + protocol.data();
    if (address[0] != '\0') router_name_ += std::string(", ") + address.data();
    router_name_ += ")";
}

void PortMapper::lose_router() {
    is_in_doubt_ = false;
    if (router_ != nullptr) library_.PortMap_Forget(router_);
    router_ = nullptr;
}

void PortMapper::open(const Port& port) {
    if (is_in_doubt_) lose_router();
    if (router_ == nullptr) find_router();
    const bool is_ipv6 = calls_ == Calls::ipv6;
    if (router_ == nullptr) {
        // Without an address there is nothing to say, and nothing to be let in.
        const char* const text = !has_address_ ? ""
                                 : is_ipv6 ? "No router that opens its firewall for IPv6 was found (UPnP)."
                                           : "No router that passes calls on was found (UPnP, NAT-PMP).";
        return note(port, {false, text}, times_.again);
    }
    std::array<char, VANTLOW_ROUTER_ROOM> why{};
    const auto lease = static_cast<std::uint32_t>(times_.lease.count());
    const std::uint32_t granted = library_.PortMap_Open(router_, static_cast<int>(port.first), port.second,
                                                        lease, order_name, why.data(), why.size());
    if (granted == 0) {
        const char* const fails =
            is_ipv6 ? " is not opened for calls by IPv6 by the " : " is not passed on by the ";
        note(port, {false, words_of(port) + fails + router_name_ + ": " + why.data()}, times_.again);
        // It may be another one by the next time; what it passes on already is still taken back from it.
        is_in_doubt_ = true;
        return;
    }
    // One that grants less than a moment would be asked without end.
    const auto half = std::max(std::chrono::milliseconds(granted) * 500, std::chrono::milliseconds(1000));
    const std::string does = is_ipv6 ? " lets calls by IPv6 in for " + words_of(port) + " of this machine."
                                     : " passes " + words_of(port) + " on to this machine.";
    note(port, {true, "The " + router_name_ + does}, half);
}

void PortMapper::close(const Port& port) {
    bool is_open = false;
    {
        const MutexLock guard(mutex_);
        const auto at = ports_.find(port);
        // Somebody may want it again.
        if (at == ports_.end() || at->second.holders > 0) return;
        is_open = at->second.state.is_open;
        ports_.erase(at);
    }
    if (is_open && router_ != nullptr)
        library_.PortMap_Close(router_, static_cast<int>(port.first), port.second);
}

void PortMapper::run() {
    for (;;) {
        Port port;
        bool opens = false;
        Clock::duration wait{};
        const bool is_due = next_order(port, opens, wait);
        MutexLock guard(mutex_);
        if (end_ && (!is_due || Clock::now() >= *end_)) break;
        if (is_due) {
            guard.unlock();
            opens ? open(port) : close(port);
            continue;
        }
        changed_.wait_for(guard, wait, [this]() VANTLOW_REQUIRES(mutex_) { return is_changed_; });
    }
    lose_router();
}

}  // namespace vantlow
