#include "transfer/connection/tunnel_network.h"

#include <array>
#include <utility>

#include "transfer/connection/tunnel_handshake.h"

namespace vantlow {
namespace {

constexpr std::size_t most_connections = 4;  // of one handshake

TunnelTarget target_of(const ProxyPlan& proxy, const SocketAddress& to) {
    TunnelTarget target;
    target.port = to.port();
    target.want_connect = true;
    target.ipv4 = to.ipv4();
    target.ipv6 = to.ipv6();
    // SOCKS4 would take the digits of an IPv6 address for a name.
    if (proxy.kind != ProxyPlan::socks4) target.host = to.host();
    return target;
}

class TunnelStream final : public net::Stream {
  public:
    TunnelStream(const TunnelNetwork::Way& way, const SocketAddress& to, net::Network::Connected done);
    ~TunnelStream() override { close(); }

    net::Step read(std::span<std::byte> into, Clock::time_point now) override;
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override;
    void when_readable(net::Callback call) override;
    void when_writable(net::Callback call) override;
    Result shut_down_sending() override { return is_open_ ? below_->shut_down_sending() : failure_; }
    void close() noexcept override;
    void reset() noexcept override;
    [[nodiscard]] std::optional<SocketAddress> local_address() const override { return std::nullopt; }
    [[nodiscard]] std::optional<SocketAddress> peer_address() const override {
        return is_open_ ? std::optional(to_) : std::nullopt;
    }

  private:
    void call_proxy();
    void go_on();
    bool send_some();
    bool hear_some();
    void end(const Result& result);
    void fail_proxy(const Result& result);
    void forget() noexcept;

    const TunnelNetwork::Way& way_;
    const SocketAddress to_;
    TunnelHandshake handshake_;
    std::unique_ptr<net::Stream> below_;
    std::size_t next_address_ = 0;
    std::size_t connections_ = 0;
    bool is_open_ = false;
    Result failure_;  ///< once it cannot be opened any more
    net::Network::Connected done_;
    net::Callback readable_;  ///< until it is open, as the next one
    net::Callback writable_;
    net::Timer deadline_;
    net::Timer wake_;
};

TunnelStream::TunnelStream(const TunnelNetwork::Way& way, const SocketAddress& to,
                           net::Network::Connected done)
    : way_(way),
      to_(to),
      handshake_(way.proxy, target_of(way.proxy, to), way.time_out),
      done_(std::move(done)),
      deadline_(way.below.timers()),
      wake_(way.below.timers()) {
    call_proxy();
}

void TunnelStream::call_proxy() {
    below_ = way_.below.connect(way_.at[next_address_], [this](const Result& result) {
        if (!result.ok()) {
            // The stream that failed is in the middle of this call.
            if (++next_address_ < way_.at.size())
                return wake_.start(way_.below.now(), [this] { call_proxy(); });
            return fail_proxy(result);
        }
        ++connections_;
        handshake_.begin();
        go_on();
    });
}

void TunnelStream::go_on() {
    using State = TunnelHandshake::State;
    deadline_.cancel();
    for (;;) {
        const State state = handshake_.step();
        if (!send_some()) return;
        switch (state) {
            case State::needs_bytes:
                if (!hear_some()) return;
                break;
            case State::open:
                return end({});
            case State::refused:
                return handshake_.result().about_credentials ? fail_proxy(handshake_.result())
                                                             : end(handshake_.result());
            case State::again:
                if (connections_ == most_connections) return fail_proxy(handshake_.result());
                return wake_.start(way_.below.now(), [this] { call_proxy(); });
        }
    }
}

// False: go_on() is called later, or it is over.
bool TunnelStream::send_some() {
    std::string& unsent = handshake_.unsent();
    while (!unsent.empty()) {
        const net::Step step = below_->write(std::as_bytes(std::span(unsent)), way_.below.now());
        if (step.state == net::Step::State::again) {
            below_->when_writable([this] { go_on(); });
            return false;
        }
        if (step.state != net::Step::State::moved) {
            end(step.result());
            return false;
        }
        unsent.erase(0, step.bytes);
    }
    return true;
}

// Exactly what the handshake wants: the bytes behind it are the tunnel's.
bool TunnelStream::hear_some() {
    std::array<std::byte, 512> room;
    const std::size_t most = std::min(handshake_.wanted(), room.size());
    const net::Step step = below_->read(std::span(room).first(most), way_.below.now());
    switch (step.state) {
        case net::Step::State::moved:
            handshake_.hear({reinterpret_cast<const char*>(room.data()), step.bytes});
            return true;
        case net::Step::State::again:
            below_->when_readable([this] { go_on(); });
            deadline_.start(handshake_.deadline(), [this] { go_on(); });
            return false;
        case net::Step::State::closed:
        case net::Step::State::failed:
            break;
    }
    handshake_.hear_end();
    return true;
}

// The stream may not exist any more when this returns.
void TunnelStream::end(const Result& result) {
    below_->when_readable(nullptr);
    is_open_ = result.ok();
    failure_ = result;
    if (is_open_) {
        if (readable_) below_->when_readable(std::exchange(readable_, nullptr));
        if (writable_) below_->when_writable(std::exchange(writable_, nullptr));
    }
    const auto done = std::exchange(done_, nullptr);
    if (done) done(result);
}

void TunnelStream::fail_proxy(const Result& result) {
    if (way_.trouble) way_.trouble(result);
    end(result);
}

net::Step TunnelStream::read(std::span<std::byte> into, Clock::time_point now) {
    if (is_open_) return below_->read(into, now);
    return failure_.ok() ? net::Step::again(net::Wants::readable) : net::Step::failed(failure_.code);
}

net::Step TunnelStream::write(std::span<const std::byte> from, Clock::time_point now) {
    if (is_open_) return below_->write(from, now);
    return failure_.ok() ? net::Step::again(net::Wants::writable) : net::Step::failed(failure_.code);
}

// One that failed has said so to whoever asked for it, who asks for nothing more.
void TunnelStream::when_readable(net::Callback call) {
    if (is_open_) return below_->when_readable(std::move(call));
    readable_ = std::move(call);
}

void TunnelStream::when_writable(net::Callback call) {
    if (is_open_) return below_->when_writable(std::move(call));
    writable_ = std::move(call);
}

void TunnelStream::forget() noexcept {
    deadline_.cancel();
    wake_.cancel();
    // They may own whoever owns this.
    const auto done = std::exchange(done_, nullptr);
    const auto readable = std::exchange(readable_, nullptr);
    const auto writable = std::exchange(writable_, nullptr);
}

void TunnelStream::close() noexcept {
    forget();
    below_->close();
}

void TunnelStream::reset() noexcept {
    forget();
    below_->reset();
}

}  // namespace

TunnelNetwork::TunnelNetwork(net::Network& below, ProxyPlan proxy, std::vector<SocketAddress> at,
                             std::chrono::milliseconds time_out, Trouble trouble)
    : way_{below, std::move(proxy), std::move(at), time_out, std::move(trouble)} {}

std::unique_ptr<net::Stream> TunnelNetwork::connect(const SocketAddress& to, Connected done) {
    return std::make_unique<TunnelStream>(way_, to, std::move(done));
}

Outcome<std::unique_ptr<net::Listener>> TunnelNetwork::listen(const SocketAddress&, int) {
    return Result(Code::unsupported, "Nobody can call through a proxy.");
}

Outcome<std::unique_ptr<net::Datagrams>> TunnelNetwork::bind(const SocketAddress&) {
    return Result(Code::unsupported, "No datagrams go through this proxy.");
}

}  // namespace vantlow
