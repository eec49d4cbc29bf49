// The program's connections, as the speed limit counts them.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/busy_lock.h"

namespace vantlow {

/// A record of one user of connections in the transfer engine.
class CConnectionNode {
  public:
    CConnectionNode() = default;
    CConnectionNode(const CConnectionNode&) = delete;
    CConnectionNode& operator=(const CConnectionNode&) = delete;
    virtual ~CConnectionNode() = default;

    std::atomic<int> connections{0};  ///< that it holds now
    std::atomic<bool> active{false};  ///< it receives
};

/// One registered set: the ordinary transfers, the peer-to-peer ones, and so on. Any thread may call.
class CConnectionSet {
  public:
    void add(CConnectionNode& node);
    void remove(CConnectionNode& node) noexcept;
    /// Connections of the entries that hold at least one and are marked active.
    [[nodiscard]] int count_active();

  private:
    BusyLock lock_;
    std::vector<CConnectionNode*> nodes_ VANTLOW_GUARDED_BY(lock_);
};

/// All sets. Each set's lock is taken in turn and given back before the next one's: two are never held at
/// once.
class ConnectionSets {
  public:
    CConnectionSet transfers;
    CConnectionSet peers;

    [[nodiscard]] int count_active() { return transfers.count_active() + peers.count_active(); }
    /// One connection's share of a limit in bytes per second; -1 when no connection is active.
    [[nodiscard]] std::int64_t share_of(std::int64_t limit);
};

}  // namespace vantlow
