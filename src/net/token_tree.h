// Who may move how many bytes now: limits of speed in a tree, shared fairly. A pure object that is told the
// time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/clock.h"

namespace vantlow::net {

/// The limits of one direction. Groups (the program, queues, jobs) may have a limit each and stand in one
/// another; users (connections) stand in groups and take tokens, one a byte. Under each limit, every active
/// user has the limit divided by the number of all active users below it; what some do not use goes in equal
/// parts to those who want more. Active is who asked within the last 300 ms. Over 5 s no limit is exceeded by
/// more than 3 %, whatever was saved up before. Every operation takes time in the number of groups above one,
/// never in that of users.
///
/// The times handed in never go back. Not for use by several threads at once (SharedTokens is).
class TokenTree {
  public:
    using Group = std::uint32_t;
    using User = std::uint32_t;
    static constexpr Group everything = 0;
    /// Groups in one another, `everything` included.
    static constexpr std::size_t most_levels = 6;

    explicit TokenTree(Clock::time_point now) { groups_.push_back({.settled = now, .is_used = true}); }

    /// The new group has no limit. Not below a group that has most_levels - 1 above it.
    Group add_group(Group parent);
    /// An empty group; its number may be given out again.
    void remove_group(Group group);
    /// True while any group has a limit.
    [[nodiscard]] bool has_limits() const noexcept { return limits_ > 0; }
    /// With all that it holds: a job goes into another queue.
    void move_group(Group group, Group parent, Clock::time_point now);
    /// In bytes a second; 0 or less: none. Another one takes effect at once: what was saved up under the old
    /// one is gone.
    void set_limit(Group group, std::int64_t bytes_per_second, Clock::time_point now);

    User add_user(Group group);
    /// Its number may be given out again.
    void remove_user(User user, Clock::time_point now);

    struct Grant {
        std::size_t bytes = 0;           ///< these are taken
        Clock::time_point not_before{};  ///< when bytes is 0: ask again then, at most 100 ms ahead
    };
    /// Some of `wanted` (above 0) for the user; without any limit above it, all.
    Grant take(User user, std::size_t wanted, Clock::time_point now);
    /// Returns tokens that were taken and could not be used, since a peer was slower: others get them.
    void give_back(User user, std::size_t unused);

    /// Who asked lately, below this group.
    [[nodiscard]] int active(Group group) const noexcept { return groups_[group].active; }

  private:
    static constexpr std::uint32_t none = UINT32_MAX;

    // Under a limit, two sums grow with the time: what everybody was given since the beginning, and what
    // those who are short were given beside it. A user gets what a sum grew by since the user looked at it
    // last; so nobody has to be looked for when there is something to distribute.
    struct LimitedGroup {
        Group parent = none;
        double limit = 0;             ///< bytes a second; 0: none
        double share_sum = 0;         ///< bytes for each active user
        double spare_sum = 0;         ///< bytes for each user that is short
        double spare = 0;             ///< left over and not distributed yet
        Clock::time_point settled{};  ///< the sums are right for this moment
        int active = 0;
        int short_users = 0;
        std::uint64_t epoch = 0;  ///< another one: accounts of before count no more
        bool is_used = false;
    };
    /// A user's under one limit.
    struct Account {
        double tokens = 0;
        double seen_share = 0;
        double seen_spare = 0;
        double speed = 0;  ///< bytes a second that it earned lately
        std::uint64_t epoch = 0;
        bool is_short = false;  ///< it wanted more than there was
    };
    struct Member {
        Group group = none;
        std::uint32_t before = none;  ///< in the order of asking, while active
        std::uint32_t after = none;
        Clock::time_point asked{};
        bool is_active = false;
        std::array<Account, most_levels> accounts;  ///< from its own group upwards
    };

    void settle(LimitedGroup& group, Clock::time_point now);
    void collect(Account& account, LimitedGroup& group, Clock::duration since_asked);
    void set_short(Account& account, LimitedGroup& group, bool is_short);
    void trim(Account& account, LimitedGroup& group);
    static double speed_of(const Account& account, const LimitedGroup& group);
    std::size_t ask(Account& account, LimitedGroup& group, std::size_t wanted, Clock::duration since_asked,
                    Clock::duration& pause);
    static void add_spare(LimitedGroup& group, double bytes);
    void touch(User user, Clock::time_point now);
    void retire(User user, Clock::time_point now);
    void retire_idle(Clock::time_point now);
    void unlink(Member& member);
    void change_active(Group from, int by, Clock::time_point now);

    std::vector<LimitedGroup> groups_;
    std::vector<Member> members_;
    std::vector<Group> free_groups_;
    std::vector<User> free_users_;
    std::uint32_t first_ = none;  ///< the active user that asked longest ago
    std::uint32_t last_ = none;
    std::uint64_t epochs_ = 0;
    int limits_ = 0;
};

}  // namespace vantlow::net
