#include "net/token_tree.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace vantlow::net {
namespace {

using namespace std::chrono_literals;

// Savings, in seconds of a limit: of users who could take them, and of nobody in particular. Together they
// are the most that a limit may be exceeded by.
constexpr double saved_by_users = 0.05;
constexpr double saved_as_spare = 0.09;
// A user that is short and comes late keeps what it earned in this time: its thread or its timer may have
// been late.
constexpr Clock::duration late_after = 150ms;
constexpr Clock::duration idle_after = 300ms;
// Bytes are not given out finer than this many times a second, or a small share would be eaten by system
// calls.
constexpr double grants_per_second = 40;
// A pause is no longer than this, so that a changed limit is felt.
constexpr Clock::duration longest_pause = 100ms;
constexpr Clock::duration shortest_pause = 1ms;
// Who stays away for so long although there were tokens enough is not short of them.
constexpr Clock::duration in_no_hurry = 5ms;

double seconds_of(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

}  // namespace

TokenTree::Group TokenTree::add_group(Group parent) {
    Group group = static_cast<Group>(groups_.size());
    if (free_groups_.empty()) {
        groups_.emplace_back();
    } else {
        group = free_groups_.back();
        free_groups_.pop_back();
    }
    groups_[group] = {
        .parent = parent, .settled = groups_[parent].settled, .epoch = ++epochs_, .is_used = true};
    return group;
}

void TokenTree::remove_group(Group group) {
    if (!groups_[group].is_used || group == everything) return;
    if (groups_[group].limit > 0) --limits_;
    groups_[group].is_used = false;
    free_groups_.push_back(group);
}

void TokenTree::move_group(Group group, Group parent, Clock::time_point now) {
    const int active = groups_[group].active;
    change_active(groups_[group].parent, -active, now);
    groups_[group].parent = parent;
    change_active(parent, active, now);
}

void TokenTree::set_limit(Group group, std::int64_t bytes_per_second, Clock::time_point now) {
    LimitedGroup& of = groups_[group];
    const auto limit = static_cast<double>(std::max<std::int64_t>(bytes_per_second, 0));
    if (of.limit == limit) return;
    limits_ += (limit > 0 ? 1 : 0) - (of.limit > 0 ? 1 : 0);
    settle(of, now);
    of.settled = now;
    of.limit = limit;
    of.spare = 0;
    of.short_users = 0;
    of.epoch = ++epochs_;
}

TokenTree::User TokenTree::add_user(Group group) {
    User user = static_cast<User>(members_.size());
    if (free_users_.empty()) {
        members_.emplace_back();
    } else {
        user = free_users_.back();
        free_users_.pop_back();
    }
    members_[user] = {};
    members_[user].group = group;
    return user;
}

void TokenTree::remove_user(User user, Clock::time_point now) {
    if (members_[user].group == none) return;
    if (members_[user].is_active) retire(user, now);
    members_[user].group = none;
    free_users_.push_back(user);
}

// Brings the sums of a limit to this moment.
void TokenTree::settle(LimitedGroup& group, Clock::time_point now) {
    if (group.limit <= 0 || now < group.settled) return;
    const double earned = group.limit * seconds_of(now - group.settled);
    group.settled = now;
    if (group.active > 0)
        group.share_sum += earned / group.active;
    else
        add_spare(group, earned);
    if (group.short_users > 0) {
        group.spare_sum += group.spare / group.short_users;
        group.spare = 0;
    }
}

void TokenTree::add_spare(LimitedGroup& group, double bytes) {
    group.spare = std::min(group.spare + bytes, group.limit * saved_as_spare);
}

// Takes over what an account earned since it was looked at.
void TokenTree::collect(Account& account, LimitedGroup& group, Clock::duration since_asked) {
    if (account.epoch != group.epoch) {
        account = {.seen_share = group.share_sum, .seen_spare = group.spare_sum, .epoch = group.epoch};
        return;
    }
    double earned = group.share_sum - account.seen_share;
    if (account.is_short) earned += group.spare_sum - account.seen_spare;
    account.seen_share = group.share_sum;
    account.seen_spare = group.spare_sum;
    if (since_asked > late_after) {
        const double kept = earned * seconds_of(late_after) / seconds_of(since_asked);
        add_spare(group, earned - kept);
        earned = kept;
    }
    account.tokens += earned;
    if (since_asked >= 1ms) account.speed = earned / seconds_of(std::min(since_asked, late_after));
}

void TokenTree::set_short(Account& account, LimitedGroup& group, bool is_short) {
    if (account.is_short == is_short) return;
    if (account.is_short) account.tokens += group.spare_sum - account.seen_spare;
    account.is_short = is_short;
    account.seen_spare = group.spare_sum;
    group.short_users += is_short ? 1 : -1;
}

double TokenTree::speed_of(const Account& account, const LimitedGroup& group) {
    const double share = group.limit / std::max(group.active, 1);
    return account.is_short ? std::max(share, account.speed) : share;
}

// A user saves up a little only; the rest is for others.
void TokenTree::trim(Account& account, LimitedGroup& group) {
    const double most = std::max(speed_of(account, group) * saved_by_users, 2.0);
    if (account.tokens <= most) return;
    add_spare(group, account.tokens - most);
    account.tokens = most;
}

void TokenTree::change_active(Group from, int by, Clock::time_point now) {
    for (Group g = from; g != none; g = groups_[g].parent) {
        settle(groups_[g], now);
        groups_[g].active += by;
    }
}

void TokenTree::unlink(Member& member) {
    (member.before == none ? first_ : members_[member.before].after) = member.after;
    (member.after == none ? last_ : members_[member.after].before) = member.before;
}

// The user asks: it is active, and the last in the order of asking.
void TokenTree::touch(User user, Clock::time_point now) {
    Member& member = members_[user];
    if (member.is_active) {
        unlink(member);
    } else {
        member.is_active = true;
        member.asked = now;
        for (Account& account : member.accounts) account.epoch = none;  // nothing was earned meanwhile
        change_active(member.group, 1, now);
    }
    member.before = last_;
    member.after = none;
    (last_ == none ? first_ : members_[last_].after) = user;
    last_ = user;
}

void TokenTree::retire(User user, Clock::time_point now) {
    Member& member = members_[user];
    auto account = member.accounts.begin();
    for (Group g = member.group; g != none; g = groups_[g].parent, ++account) {
        LimitedGroup& group = groups_[g];
        if (group.limit <= 0) continue;
        settle(group, now);
        collect(*account, group, now - member.asked);
        set_short(*account, group, false);
        add_spare(group, account->tokens);
    }
    change_active(member.group, -1, now);
    unlink(member);
    member.is_active = false;
}

void TokenTree::retire_idle(Clock::time_point now) {
    while (first_ != none && now - members_[first_].asked > idle_after) retire(first_, now);
}

// Returns the part of `wanted` that the account lets its user have; 0, and a longer pause, where that is too
// little to be worth it.
std::size_t TokenTree::ask(Account& account, LimitedGroup& group, std::size_t wanted,
                           Clock::duration since_asked, Clock::duration& pause) {
    const auto all = static_cast<double>(wanted);
    const bool left_enough = account.tokens >= all && account.epoch == group.epoch;
    collect(account, group, since_asked);
    if (left_enough && since_asked > in_no_hurry)
        set_short(account, group, false);
    else if (account.tokens < all)
        set_short(account, group, true);
    const double speed = speed_of(account, group);
    const double least = std::clamp(speed / grants_per_second, 1.0, all);
    if (account.tokens >= least) return static_cast<std::size_t>(std::min(all, account.tokens));
    const std::chrono::duration<double> time((least - account.tokens) / speed);
    const auto longest = std::chrono::duration<double>(longest_pause);
    pause = std::max(
        {pause, shortest_pause, std::chrono::duration_cast<Clock::duration>(std::min(time, longest))});
    return 0;
}

TokenTree::Grant TokenTree::take(User user, std::size_t wanted, Clock::time_point now) {
    retire_idle(now);
    touch(user, now);
    Member& member = members_[user];
    std::size_t bytes = wanted;
    Clock::duration pause{0};
    auto account = member.accounts.begin();
    for (Group g = member.group; g != none; g = groups_[g].parent, ++account) {
        if (groups_[g].limit <= 0) continue;
        settle(groups_[g], now);
        bytes = std::min(bytes, ask(*account, groups_[g], wanted, now - member.asked, pause));
    }
    member.asked = now;
    account = member.accounts.begin();
    for (Group g = member.group; g != none; g = groups_[g].parent, ++account) {
        if (groups_[g].limit <= 0) continue;
        account->tokens -= static_cast<double>(bytes);
        trim(*account, groups_[g]);
    }
    return {bytes, now + pause};
}

void TokenTree::give_back(User user, std::size_t unused) {
    Member& member = members_[user];
    auto account = member.accounts.begin();
    for (Group g = member.group; unused > 0 && g != none; g = groups_[g].parent, ++account) {
        LimitedGroup& group = groups_[g];
        if (group.limit <= 0) continue;
        if (!member.is_active || account->epoch != group.epoch) {
            add_spare(group, static_cast<double>(unused));
            continue;
        }
        account->tokens += static_cast<double>(unused);
        set_short(*account, group, false);
        trim(*account, group);
    }
}

}  // namespace vantlow::net
