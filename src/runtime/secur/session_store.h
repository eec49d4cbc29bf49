// Sessions of earlier connections, for those that come later.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>

#include "base/mutex.h"

namespace vantlow::secur {

/// Keeps what connections may resume, by the caller's key; bounded. `Session` is movable and copyable. Any
/// thread may call.
template <class Session>
class SessionStore {
  public:
    void keep(const std::string& key, Session session) {
        const MutexLock guard(mutex_);
        std::deque<Session>& kept = sessions_[key];
        kept.push_back(std::move(session));
        if (kept.size() > most_of_a_key) kept.pop_front();
        if (sessions_.size() > most_keys) drop_other_than(key);
    }

    /// The newest one; a null one when there is none. A ticket is to be used once (RFC 8446, C.4), so it is
    /// taken out; the last one stays, because resuming it again is better than none at all.
    Session take(const std::string& key) {
        const MutexLock guard(mutex_);
        const auto found = sessions_.find(key);
        if (found == sessions_.end() || found->second.empty()) return {};
        std::deque<Session>& kept = found->second;
        if (kept.size() == 1) return kept.front();
        Session session = std::move(kept.back());
        kept.pop_back();
        return session;
    }

  private:
    static constexpr std::size_t most_of_a_key = 16;
    static constexpr std::size_t most_keys = 256;

    void drop_other_than(const std::string& key) VANTLOW_REQUIRES(mutex_) {
        auto victim = sessions_.begin();
        if (victim->first == key) ++victim;
        sessions_.erase(victim);
    }

    Mutex mutex_;
    std::map<std::string, std::deque<Session>> sessions_ VANTLOW_GUARDED_BY(mutex_);  ///< newest last
};

}  // namespace vantlow::secur
