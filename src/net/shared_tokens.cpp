#include "net/shared_tokens.h"

#include <algorithm>

namespace vantlow::net {

TokenTree::Group SharedTokens::add_group(TokenTree::Group parent) {
    const MutexLock guard(mutex_);
    return tree_.add_group(parent);
}

void SharedTokens::remove_group(TokenTree::Group group) {
    const MutexLock guard(mutex_);
    tree_.remove_group(group);
    has_limits_ = tree_.has_limits();
}

void SharedTokens::move_group(TokenTree::Group group, TokenTree::Group parent, Clock::time_point now) {
    const MutexLock guard(mutex_);
    tree_.move_group(group, parent, in_order(now));
}

void SharedTokens::set_limit(TokenTree::Group group, std::int64_t bytes_per_second, Clock::time_point now) {
    const MutexLock guard(mutex_);
    tree_.set_limit(group, bytes_per_second, in_order(now));
    has_limits_ = tree_.has_limits();
}

TokenTree::User SharedTokens::add_user(TokenTree::Group group) {
    const MutexLock guard(mutex_);
    return tree_.add_user(group);
}

void SharedTokens::remove_user(TokenTree::User user, Clock::time_point now) {
    const MutexLock guard(mutex_);
    tree_.remove_user(user, in_order(now));
}

TokenTree::Grant SharedTokens::take(TokenTree::User user, std::size_t wanted, Clock::time_point now) {
    if (!has_limits_.load(std::memory_order_relaxed)) return {wanted, now};
    const MutexLock guard(mutex_);
    return tree_.take(user, wanted, in_order(now));
}

void SharedTokens::give_back(TokenTree::User user, std::size_t unused) {
    if (!has_limits_.load(std::memory_order_relaxed)) return;
    const MutexLock guard(mutex_);
    tree_.give_back(user, unused);
}

std::size_t SharedTokens::wait_and_take(TokenTree::User user, std::size_t wanted, Clock::time_point until,
                                        const StopSource& stop) {
    for (;;) {
        const Clock::time_point now = Clock::now();
        const TokenTree::Grant grant = take(user, wanted, now);
        if (grant.bytes > 0) return grant.bytes;
        if (now >= until) return 0;
        const auto pause = std::min(grant.not_before, until) - now;
        if (stop.wait_for(std::chrono::ceil<std::chrono::milliseconds>(pause))) return 0;
    }
}

}  // namespace vantlow::net
