#include "bt/peer_network.h"

#include <utility>

namespace vantlow {
namespace {

constexpr std::chrono::milliseconds tcp_first{500};  // of TCP, which is the quicker one where both work

/// Two attempts, and the stream of the one that succeeded.
class RacingStream final : public net::Stream {
  public:
    RacingStream(const PeerNetwork::Way& way, const SocketAddress& to, Clock::duration head_start,
                 net::Network::Connected done);
    ~RacingStream() override { close(); }

    net::Step read(std::span<std::byte> into, Clock::time_point now) override {
        if (winner_) return winner_->read(into, now);
        return failure_ ? net::Step::failed(failure_->code) : net::Step::again(net::Wants::readable);
    }
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override {
        if (winner_) return winner_->write(from, now);
        return failure_ ? net::Step::failed(failure_->code) : net::Step::again(net::Wants::writable);
    }
    void when_readable(net::Callback call) override {
        if (winner_) return winner_->when_readable(std::move(call));
        readable_ = std::move(call);
    }
    void when_writable(net::Callback call) override {
        if (winner_) return winner_->when_writable(std::move(call));
        writable_ = std::move(call);
    }
    Result shut_down_sending() override {
        return winner_ ? winner_->shut_down_sending() : Result(Code::transient);
    }
    void close() noexcept override {
        forget();
        if (winner_) winner_->close();
    }
    void reset() noexcept override {
        forget();
        if (winner_) winner_->reset();
    }
    [[nodiscard]] bool is_over_datagrams() const noexcept override {
        return winner_ && winner_->is_over_datagrams();
    }
    [[nodiscard]] std::optional<SocketAddress> local_address() const override {
        return winner_ ? winner_->local_address() : std::nullopt;
    }
    [[nodiscard]] std::optional<SocketAddress> peer_address() const override {
        return winner_ ? winner_->peer_address() : std::nullopt;
    }

  private:
    using Attempt = std::unique_ptr<net::Stream>;

    void call_by_datagrams();
    void connected(Attempt& attempt, const Result& result);
    void forget() noexcept;

    const PeerNetwork::Way way_;
    const SocketAddress to_;
    Attempt tcp_;
    Attempt utp_;
    Attempt winner_;
    bool has_called_ = false;  ///< by datagrams
    std::size_t lost_ = 0;     ///< attempts
    std::optional<Result> failure_;
    net::Network::Connected done_;
    net::Callback readable_;  ///< until there is a winner, as the next one
    net::Callback writable_;
    net::Timer second_call_;
};

RacingStream::RacingStream(const PeerNetwork::Way& way, const SocketAddress& to, Clock::duration head_start,
                           net::Network::Connected done)
    : way_(way), to_(to), done_(std::move(done)), second_call_(way.below.timers()) {
    tcp_ = way_.below.connect(to_, [this](const Result& result) { connected(tcp_, result); });
    second_call_.start(way_.below.now() + head_start, [this] { call_by_datagrams(); });
}

void RacingStream::call_by_datagrams() {
    if (std::exchange(has_called_, true)) return;
    utp_ = way_.datagrams.connect(to_, [this](const Result& result) { connected(utp_, result); });
}

// The stream may not exist any more when this returns. Attempts that failed are in the middle of a call.
void RacingStream::connected(Attempt& attempt, const Result& result) {
    if (!result.ok()) {
        ++lost_;
        if (!has_called_) return second_call_.start(way_.below.now(), [this] { call_by_datagrams(); });
        if (lost_ < 2) return;
        failure_ = result;
    } else {
        second_call_.cancel();
        winner_ = std::move(attempt);
        if (tcp_) tcp_->close();
        if (utp_) utp_->close();
        if (readable_) winner_->when_readable(std::exchange(readable_, nullptr));
        if (writable_) winner_->when_writable(std::exchange(writable_, nullptr));
    }
    const auto done = std::exchange(done_, nullptr);
    if (done) done(result);
}

void RacingStream::forget() noexcept {
    second_call_.cancel();
    // They may own whoever owns this.
    const auto done = std::exchange(done_, nullptr);
    const auto readable = std::exchange(readable_, nullptr);
    const auto writable = std::exchange(writable_, nullptr);
    if (tcp_) tcp_->close();
    if (utp_) utp_->close();
}

}  // namespace

std::unique_ptr<net::Stream> PeerNetwork::connect(const SocketAddress& to, Connected done) {
    return std::make_unique<RacingStream>(way_, to, tcp_first, std::move(done));
}

std::unique_ptr<net::Stream> PeerNetwork::connect_at_once(const SocketAddress& to, Connected done) {
    return std::make_unique<RacingStream>(way_, to, Clock::duration::zero(), std::move(done));
}

}  // namespace vantlow
