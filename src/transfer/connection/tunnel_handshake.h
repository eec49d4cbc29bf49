// A tunnel's handshake for those who cannot wait: it takes what the proxy says as it comes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "transfer/connection/tunnel.h"

namespace vantlow {

/// One handshake with a proxy, over as many connections as it takes. Nothing is kept between two steps but
/// what the proxy has said: a step runs the handshake from its beginning with that, says nothing twice, and
/// ends where more is needed; of a line that has not ended it does nothing. So the functions that wait for
/// each answer (tunnel.h) serve here, too. One thread; not logged.
class TunnelHandshake final : private ProxyWire {
  public:
    enum class State {
        needs_bytes,  ///< exactly wanted() more bytes of the proxy, or the end of the connection, or
                      ///< deadline()
        open,         ///< what comes next belongs to the tunnel
        refused,      ///< result() says why
        again,        ///< the same over a new connection, begin() first
    };

    /// `proxy` outlives the object. `time_out`: of each answer. The target's login is not used.
    TunnelHandshake(const ProxyPlan& proxy, TunnelTarget target, std::chrono::milliseconds time_out)
        : proxy_(proxy), target_(std::move(target)), time_out_(time_out) {}

    /// A new connection to the proxy stands.
    void begin();
    /// The proxy has said this, or has ended the connection.
    void hear(std::string_view bytes);
    void hear_end() noexcept { has_ended_ = true; }
    /// Goes on as far as it can. What is to be sent is in unsent() then.
    State step();

    [[nodiscard]] std::string& unsent() noexcept { return unsent_; }
    [[nodiscard]] std::size_t wanted() const noexcept { return wanted_; }
    /// When to call step() although nothing came.
    [[nodiscard]] Clock::time_point deadline() const noexcept { return deadline_; }
    [[nodiscard]] const Result& result() const noexcept { return result_; }

  private:
    Result send(std::span<const std::byte> bytes) override;
    Result receive(std::span<std::byte> into, Clock::time_point until) override;
    Result receive_line(std::string& line, std::size_t most, Clock::time_point until) override;
    Result lack(std::size_t from, std::size_t bytes, Clock::time_point until);
    [[nodiscard]] Clock::time_point time_out() const override;
    bool run(std::size_t connection, HttpLogin* login);

    const ProxyPlan& proxy_;
    const TunnelTarget target_;
    const std::chrono::milliseconds time_out_;
    std::vector<std::string> heard_;  ///< over each of the connections
    bool has_ended_ = false;          ///< the last one
    std::string unsent_;
    std::size_t said_ = 0;  ///< messages that were made for the last connection
    std::size_t wanted_ = 0;
    std::size_t waits_at_ = 0;    ///< where the bytes are missing that the deadline is for
    std::size_t line_until_ = 0;  ///< what is missing there is the rest of a line, which goes no farther
    Clock::time_point deadline_{};
    Result result_;

    // Of the run that is under way.
    std::size_t connection_ = 0;
    std::size_t at_ = 0;        ///< of what was heard
    std::size_t messages_ = 0;  ///< said in this run
    bool is_short_ = false;     ///< bytes are missing
};

}  // namespace vantlow
