#include "transfer/connection/base_socket.h"

#include <algorithm>
#include <utility>

#include "base/codes.h"
#include "base/digest.h"
#include "base/string_table.h"
#include "base/text.h"
#include "transfer/connection/connector.h"

namespace vantlow {
namespace {

constexpr int most_tunnel_attempts = 4;

// A connection or a session that was accepted on other terms must not pass for this one.
std::string trust_key(const TlsPlan& tls) {
    if (!tls.verify) return " unverified";
    return " verified for " + tls.host + " by " + to_utf8(tls.ca_file);
}

// A login that one user got through a proxy is not another's.
std::string proxy_user(const ProxyPlan& proxy) {
    if (proxy.user.empty()) return {};
    const std::string secret = proxy.user + '\0' + proxy.password;
    Digest digest(DigestKind::sha256);
    digest.update(std::as_bytes(std::span(secret)));
    return to_hex(digest.finish()) + "@";
}

std::string reuse_key(const ConnectPlan& plan) {
    std::string key = plan.scheme + "://" + plan.host + ":" + std::to_string(plan.port);
    if (plan.proxy.is_used()) {
        key += " via " + std::to_string(plan.proxy.kind) + " " + proxy_user(plan.proxy) + plan.proxy.host +
               ":" + std::to_string(plan.proxy.port) + (plan.want_connect ? " tunnel" : "");
    }
    if (plan.tls) key += trust_key(*plan.tls);
    if (!plan.way.is_any()) key += " by " + plan.way.name();
    if (!plan.owner.empty()) key += " of " + plan.owner;
    return key;
}

}  // namespace

void log_failure(LogSink& log, const Result& failure) {
    if (failure.code == Code::transient && failure.system_error != 0)
        log.line(Direction::error, message(Message::socket_error, {failure.system_error}));
    log.line(Direction::error, failure.message());
}

CBaseSocket::CBaseSocket(ConnectionServices& services, LogSink& log, const StopSource& stop,
                         CConnectionNode* node)
    : services_(services), log_(log), stop_(stop), pace_(node) {}

CBaseSocket::~CBaseSocket() {
    close();
}

void CBaseSocket::use(std::unique_ptr<CReuseNode> node) {
    node_ = std::move(node);
    node_->attach(&stop_, &log_);
    begin_pacing();
}

void CBaseSocket::begin_pacing() {
    paced_.emplace(node_->top(), pace_, stop_);
}

void CBaseSocket::adopt(TcpSocket socket, std::chrono::milliseconds timeout) {
    close();
    timeout_ = timeout;
    reused_ = false;
    auto node = std::make_unique<CReuseNode>();
    node->stream = std::make_unique<SocketStream>(std::move(socket));
    use(std::move(node));
}

std::optional<SocketAddress> CBaseSocket::local_address() const {
    return node_ ? node_->stream->socket().local_address() : std::nullopt;
}

std::optional<SocketAddress> CBaseSocket::peer_address() const {
    return node_ ? node_->stream->socket().peer_address() : std::nullopt;
}

void CBaseSocket::close(bool keep) {
    paced_.reset();
    if (!node_) return;
    if (keep) {
        const std::string server = node_->server;
        services_.reuse.keep(std::move(node_));
        // Its place may be what another connection waits for; one that begins to wait now finds it itself.
        if (services_.slots.is_awaited(server)) services_.reuse.drop_one(server);
    } else {
        // A body that is not wanted any more may still be on its way: a reset tells the server to stop
        // sending.
        node_->tls.reset();
        node_->stream->socket().close_with_reset();
    }
    node_.reset();
}

void CBaseSocket::claim(const ConnectPlan& plan) {
    if (node_) node_->key = reuse_key(plan);
}

Result CBaseSocket::open(const ConnectPlan& plan) {
    close();
    timeout_ = plan.timeout;
    host_ = plan.host;
    port_ = plan.port;
    if (!plan.proxy.trouble.empty()) {
        log_.line(Direction::error, plan.proxy.trouble);
        return {Code::tunnel_refused, plan.proxy.trouble};
    }
    if (plan.may_reuse) {
        if (auto kept = services_.reuse.take(reuse_key(plan), stop_)) {
            reused_ = true;
            use(std::move(kept));
            return {};
        }
    }
    reused_ = false;
    const auto login = plan.proxy.make_login ? plan.proxy.make_login() : nullptr;
    for (int attempt = 1;; ++attempt) {
        Result result = connect_new(plan, login.get());
        // The proxy ended the connection with its refusal, and the login has an answer to that.
        if (!std::exchange(tunnel_again_, false) || attempt == most_tunnel_attempts) return result;
    }
}

Result CBaseSocket::take_slot(const std::string& server, const ServerLimits& limits,
                              ServerSlots::Slot& slot) {
    // An idle connection of another kind must not keep this one waiting.
    Outcome<ServerSlots::Slot> got =
        services_.slots.acquire(server, limits, stop_, [&] { services_.reuse.drop_one(server); });
    if (!got.ok()) return got.failure();
    slot = *std::move(got);
    return {};
}

Outcome<std::vector<SocketAddress>> CBaseSocket::resolve(const std::string& host, std::uint16_t port,
                                                         const NetworkWay& way) {
    auto addresses = services_.resolver.resolve(host, port, stop_, way);
    if (!addresses.ok() && addresses.failure().kind() != Kind::stopped)
        log_.line(Direction::error, addresses.failure().message());
    return addresses;
}

Result CBaseSocket::connect_new(const ConnectPlan& plan, HttpLogin* login) {
    const bool direct = !plan.proxy.is_used();
    const std::string& host = direct ? plan.host : plan.proxy.host;
    const std::uint16_t port = direct ? plan.port : plan.proxy.port;
    auto node = std::make_unique<CReuseNode>();
    node->key = reuse_key(plan);
    node->server = plan.host + ":" + std::to_string(plan.port);
    if (Result result = take_slot(node->server, plan.limits, node->slot); !result.ok()) return result;

    if (!SocketAddress::from_literal(host, port)) {
        log_.line(Direction::note,
                  (direct ? "Connecting to " : "Connecting proxy to ") + host + ":" + std::to_string(port));
    }
    auto addresses = resolve(host, port, plan.way);
    if (!addresses.ok()) return addresses.failure();
    auto socket = connect_any(*addresses, {host, !direct}, plan.timeout, stop_, log_, plan.way);
    if (!socket.ok()) return socket.failure();
    node->stream = std::make_unique<SocketStream>(*std::move(socket));
    use(std::move(node));
    Result result = direct ? Result{} : open_tunnel(plan, login);
    if (result.ok() && plan.tls) result = start_tls(*plan.tls);
    return result;
}

// The target as its proxy is to be told: a literal as an address, a name as it is unless names are to be
// turned into addresses here.
Result CBaseSocket::open_tunnel(const ConnectPlan& plan, HttpLogin* login) {
    TunnelTarget target;
    target.host = plan.host;
    target.port = plan.port;
    target.want_connect = plan.want_connect;
    target.login = login;
    if (login != nullptr) login->connected(false);
    const bool socks = plan.proxy.kind == ProxyPlan::socks4 || plan.proxy.kind == ProxyPlan::socks5;
    auto address = SocketAddress::from_literal(plan.host, plan.port);
    if (socks && !address && plan.proxy.resolve_here) {
        auto all = resolve(plan.host, plan.port, plan.way);
        if (!all.ok()) return all.failure();
        // SOCKS4 knows IPv4 only.
        const auto fits = [&](const SocketAddress& one) {
            return plan.proxy.kind == ProxyPlan::socks5 || !one.is_ipv6();
        };
        const auto found = std::find_if(all->begin(), all->end(), fits);
        if (found != all->end()) address = *found;
    }
    if (address) {
        target.ipv4 = address->ipv4();
        target.ipv6 = address->ipv6();
    }
    std::uint16_t reported = 0;
    return tunnel(plan.proxy, target, reported);
}

Result CBaseSocket::start_tls(const TlsPlan& tls) {
    Outcome<TlsEngines::Engine> engine = services_.tls.engine(tls.ca_file);
    Result result = engine.ok() ? Result() : engine.failure();
    if (result.ok()) {
        TlsPlan plan = tls;
        if (plan.host.empty()) plan.host = host_;
        if (plan.session_key.empty()) plan.session_key = host_ + ":" + std::to_string(port_);
        plan.session_key += trust_key(plan);
        paced_.reset();
        node_->tls =
            std::make_unique<TlsStream>(services_.tls, *std::move(engine), plan, node_->stream->socket());
        node_->tls->attach(&stop_, &log_);
        begin_pacing();
        result = node_->tls->connect(from_now(timeout_));
    }
    if (result.ok()) return result;
    if (result.kind() != Kind::stopped) log_failure(log_, result);
    close();
    return result;
}

namespace {

// The connection as a handshake sees it.
class SocketWire : public ProxyWire {
  public:
    SocketWire(CBaseSocket& socket, std::chrono::milliseconds timeout) : socket_(socket), timeout_(timeout) {}
    Result send(std::span<const std::byte> bytes) override { return socket_.send_all(bytes); }
    Result receive(std::span<std::byte> into, Clock::time_point until) override {
        return socket_.receive_exactly(into, until);
    }
    [[nodiscard]] Clock::time_point time_out() const override { return from_now(timeout_); }

  private:
    CBaseSocket& socket_;
    std::chrono::milliseconds timeout_;
};

}  // namespace

Result CBaseSocket::tunnel(const ProxyPlan& proxy, const TunnelTarget& target, std::uint16_t& port) {
    SocketWire wire(*this, timeout_);
    Result result;
    if (proxy.kind == ProxyPlan::socks4) {
        result = open_socks4(wire, log_, proxy, target, port);
    } else if (proxy.kind == ProxyPlan::socks5) {
        result = open_socks5(wire, log_, proxy, target, port);
    } else if (proxy.kind == ProxyPlan::http_tunnel ||
               (proxy.kind == ProxyPlan::http && target.want_connect)) {
        result = open_connect(wire, log_, proxy, target, target.login, tunnel_again_);
    }
    if (result.ok()) return result;
    if (result.code == Code::transient) log_failure(log_, result);
    // The log's word is none for a person who sees nothing else.
    if (result.detail == message_text(Message::closed)) result.detail = "The proxy closed the connection.";
    if (target.close_on_failure) close();
    return result;
}

Result CBaseSocket::send_all(std::span<const std::byte> bytes) {
    return node_->top().write(bytes, from_now(timeout_));
}

Result CBaseSocket::receive_exactly(std::span<std::byte> into, Clock::time_point until) {
    while (!into.empty()) {
        const Moved moved = receive(into, until);
        switch (moved.state) {
            case Moved::State::data:
                into = into.subspan(moved.bytes);
                break;
            case Moved::State::quiet:
                return {Code::transient, std::string(message_text(Message::timeout))};
            case Moved::State::closed:
                return {Code::transient, std::string(message_text(Message::closed))};
            case Moved::State::failed:
                return moved.code == Code::transient ? socket_failure(moved.system_error)
                                                     : Result(moved.code);
        }
    }
    return {};
}

}  // namespace vantlow
