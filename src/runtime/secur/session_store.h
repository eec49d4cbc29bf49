// Sessions of earlier connections, kept for later ones.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace vantlow::secur {

/// Keeps the sessions that connections may resume, by the caller's key, in bounded numbers. `Session` is
/// movable and copyable. Any thread may call.
template <class Session>
class SessionStore {
  public:
    void keep(const std::string& key, Session session) {
        const std::lock_guard guard(mutex_);
        std::deque<Session>& kept = sessions_[key];
        kept.push_back(std::move(session));
        if (kept.size() > most_of_a_key) kept.pop_front();
        if (sessions_.size() > most_keys) drop_other_than(key);
    }

    /// Returns the newest session, or a null one. A ticket is to be used once (RFC 8446, C.4), so it is
    /// removed; the last one stays, because resuming it again is better than not resuming at all.
    Session take(const std::string& key) {
        const std::lock_guard guard(mutex_);
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

    void drop_other_than(const std::string& key) {
        auto victim = sessions_.begin();
        if (victim->first == key) ++victim;
        sessions_.erase(victim);
    }

    std::mutex mutex_;
    std::map<std::string, std::deque<Session>> sessions_;  ///< newest last; guarded by mutex_
};

}  // namespace vantlow::secur
