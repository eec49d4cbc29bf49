// One thread for many sockets of this machine.
#pragma once

#include <chrono>
#include <memory>

#include "net/network.h"
#include "platform/network_way.h"

namespace vantlow::net {

/// The network of this machine, over epoll or I/O completion ports. Whoever calls run() is its thread.
class Loop : public Network {
  public:
    /// Works until stop(), or returns the failure of a system that cannot wait for sockets.
    virtual Result run() = 0;
    /// Waits for one thing to do, this long at most, and does it. False: nothing was there, or the loop has
    /// stopped.
    virtual Outcome<bool> run_one(std::chrono::milliseconds at_most) = 0;
    /// Ends run() after the callback that it is in; no further one comes, works that were posted are dropped.
    /// For good. Any thread may call, also a callback.
    virtual void stop() noexcept = 0;
};

struct LoopOptions {
    /// Streams keep bytes that the system does not take, 16 KiB at most each, and send them by themselves.
    /// Windows has no cheaper way, and does so always; elsewhere it is for tests of just that.
    bool keep_unsent = false;
    /// All sockets are held to it, and bound to its address in place of that of all interfaces.
    NetworkWay way{};
};

/// Fails where the system has no descriptors for it.
Outcome<std::unique_ptr<Loop>> make_loop(const LoopOptions& options = {});

}  // namespace vantlow::net
