// The limits of speed of the whole program, for its threads and its loop.
#pragma once

#include <atomic>

#include "base/mutex.h"
#include "net/token_tree.h"
#include "platform/stop.h"

namespace vantlow::net {

/// A TokenTree that any thread may use; the lock is held for one operation of it, and not taken at all while
/// there is no limit. Times are handed in here as
/// well; they need not be in order among threads.
class SharedTokens {
  public:
    explicit SharedTokens(Clock::time_point now) : latest_(now), tree_(now) {}

    TokenTree::Group add_group(TokenTree::Group parent);
    void remove_group(TokenTree::Group group);
    void move_group(TokenTree::Group group, TokenTree::Group parent, Clock::time_point now);
    void set_limit(TokenTree::Group group, std::int64_t bytes_per_second, Clock::time_point now);
    TokenTree::User add_user(TokenTree::Group group);
    void remove_user(TokenTree::User user, Clock::time_point now);
    /// For the loop: answers "not before" instead of waiting.
    TokenTree::Grant take(TokenTree::User user, std::size_t wanted, Clock::time_point now);
    void give_back(TokenTree::User user, std::size_t unused);

    /// For a thread of its own: waits for tokens. 0: a stop was requested, or it is `until`.
    std::size_t wait_and_take(TokenTree::User user, std::size_t wanted, Clock::time_point until,
                              const StopSource& stop);

  private:
    /// Never goes back.
    Clock::time_point in_order(Clock::time_point now) VANTLOW_REQUIRES(mutex_) {
        return latest_ = now > latest_ ? now : latest_;
    }

    Mutex mutex_;
    Clock::time_point latest_ VANTLOW_GUARDED_BY(mutex_);
    TokenTree tree_ VANTLOW_GUARDED_BY(mutex_);
    std::atomic<bool> has_limits_{false};
};

/// A user's place in the limits of one direction, for as long as it lives. The limits outlive it.
class TokenUser {
  public:
    TokenUser(SharedTokens& tokens, TokenTree::Group group)
        : tokens_(tokens), user_(tokens.add_user(group)) {}
    ~TokenUser() { tokens_.remove_user(user_, Clock::time_point::min()); }
    TokenUser(const TokenUser&) = delete;
    TokenUser& operator=(const TokenUser&) = delete;

    TokenTree::Grant take(std::size_t wanted, Clock::time_point now) {
        return tokens_.take(user_, wanted, now);
    }
    void give_back(std::size_t unused) { tokens_.give_back(user_, unused); }
    std::size_t wait_and_take(std::size_t wanted, Clock::time_point until, const StopSource& stop) {
        return tokens_.wait_and_take(user_, wanted, until, stop);
    }

  private:
    SharedTokens& tokens_;
    const TokenTree::User user_;
};

}  // namespace vantlow::net
