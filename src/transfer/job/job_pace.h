// The limits of speed of a job in one direction: its own, below the program's.
#pragma once

#include "store/settings.h"
#include "transfer/connection/pacer.h"

namespace vantlow {

/// A job's place in the limits of what is received, or of what is sent to peers. Outlives the job's
/// connections; any thread may call.
class JobPace {
  public:
    explicit JobPace(net::SharedTokens& limits)
        : limits_(limits), group_(limits.add_group(net::TokenTree::everything)) {}
    ~JobPace() { limits_.remove_group(group_); }
    JobPace(const JobPace&) = delete;
    JobPace& operator=(const JobPace&) = delete;

    /// Of all connections of the job together, in bytes a second; 0: none of its own.
    void set_limit(std::int64_t bytes_per_second) {
        limits_.set_limit(group_, bytes_per_second, Clock::now());
    }
    /// Takes the program's limit of what is received from the settings as they are now. It is one for all
    /// jobs: whichever looks first sets it.
    void follow(const Settings& settings) {
        follow(settings.flag(setting::limit) ? settings.number(setting::speed_limit) : 0);
    }
    /// The same with the program's limit, bytes a second; 0: none.
    void follow(std::int64_t limit) { limits_.set_limit(net::TokenTree::everything, limit, Clock::now()); }
    [[nodiscard]] net::SharedTokens& limits() noexcept { return limits_; }
    [[nodiscard]] net::TokenTree::Group group() const noexcept { return group_; }

  private:
    net::SharedTokens& limits_;
    const net::TokenTree::Group group_;
};

}  // namespace vantlow
