#include "transfer/connection/server_slots.h"

namespace vantlow {

ServerSlots::Slot& ServerSlots::Slot::operator=(Slot&& other) noexcept {
    if (this != &other) {
        release();
        owner_ = std::exchange(other.owner_, nullptr);
        server_ = std::move(other.server_);
    }
    return *this;
}

void ServerSlots::Slot::release() noexcept {
    if (owner_ != nullptr) std::exchange(owner_, nullptr)->give_back(server_);
}

bool ServerSlots::is_awaited(const std::string& server) {
    const MutexLock guard(mutex_);
    const auto entry = servers_.find(server);
    return entry != servers_.end() && entry->second.waiting > 0;
}

Outcome<ServerSlots::Slot> ServerSlots::acquire(const std::string& server, const ServerLimits& limits,
                                                const StopSource& stop,
                                                const std::function<void()>& make_room) {
    MutexLock guard(mutex_);
    Server& entry = servers_[server];  // stays while somebody waits or holds a slot
    const auto is_free = [&]() VANTLOW_REQUIRES(mutex_) {
        const bool is_next = !limits.further || entry.first == 0;
        return limits.most <= 0 || (is_next && entry.used < limits.most);
    };
    ++entry.waiting;
    if (!limits.further) ++entry.first;
    if (make_room && !is_free()) {
        guard.unlock();
        make_room();
        guard.lock();
    }
    const bool must_wait = limits.awaited != nullptr && !is_free();
    if (must_wait) ++*limits.awaited;
    const bool free = freed_.wait(guard, stop, is_free);
    if (must_wait) --*limits.awaited;
    --entry.waiting;
    // Further connections may have made way for this one alone.
    if (!limits.further && --entry.first == 0) freed_.notify_all();
    if (!free || stop.requested()) {
        forget_if_idle(server);
        return stop.reason();
    }
    ++entry.used;
    const auto now = time_.now();
    const auto start = std::max(now, entry.next_start);
    entry.next_start = start + limits.interval;
    guard.unlock();
    Slot slot(this, server);
    const auto pause = std::chrono::ceil<std::chrono::milliseconds>(start - now);
    if (pause.count() > 0 && stop.wait_for(pause)) return stop.reason();
    return slot;
}

void ServerSlots::give_back(const std::string& server) noexcept {
    {
        const MutexLock guard(mutex_);
        --servers_[server].used;
        forget_if_idle(server);
    }
    freed_.notify_all();
}

// A server that must not be connected to for a while yet is remembered.
void ServerSlots::forget_if_idle(const std::string& server) {
    const auto entry = servers_.find(server);
    if (entry == servers_.end()) return;
    const Server& state = entry->second;
    if (state.used == 0 && state.waiting == 0 && state.next_start <= time_.now()) servers_.erase(entry);
}

}  // namespace vantlow
