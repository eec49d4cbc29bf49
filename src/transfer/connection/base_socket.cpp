#include "transfer/connection/base_socket.h"

#include "base/string_table.h"
#include "transfer/connection/connector.h"

namespace vantlow {
namespace {

std::string reuse_key(const ConnectPlan& plan) {
    std::string key = plan.scheme + "://" + plan.host + ":" + std::to_string(plan.port);
    if (plan.proxy.kind != 0) {
        key += " via " + std::to_string(plan.proxy.kind) + " " + plan.proxy.user + "@" + plan.proxy.host +
               ":" + std::to_string(plan.proxy.port);
    }
    return key;
}

}  // namespace

CBaseSocket::CBaseSocket(ConnectionServices& services, LogSink& log, const StopSource& stop,
                         SpeedShare* share)
    : services_(services), log_(log), stop_(stop), share_(share) {}

CBaseSocket::~CBaseSocket() {
    close();
}

void CBaseSocket::use(std::unique_ptr<CReuseNode> node) {
    node_ = std::move(node);
    node_->stream->attach(&stop_);
    paced_.emplace(*node_->stream);
    paced_->attach(share_, &stop_);
}

void CBaseSocket::close(bool keep) {
    paced_.reset();
    if (!node_) return;
    if (keep) {
        services_.reuse.keep(std::move(node_));
    } else {
        // A body that is not wanted any more may still be on its way: a reset tells the server to stop
        // sending.
        node_->stream->socket().close_with_reset();
    }
    node_.reset();
}

Result CBaseSocket::open(const ConnectPlan& plan) {
    close();
    timeout_ = plan.timeout;
    if (plan.may_reuse) {
        if (auto kept = services_.reuse.take(reuse_key(plan))) {
            reused_ = true;
            use(std::move(kept));
            return {};
        }
    }
    reused_ = false;
    const bool direct = plan.proxy.kind == 0;
    return connect_new(plan, (direct ? plan.host : plan.proxy.host) + ":" +
                                 std::to_string(direct ? plan.port : plan.proxy.port));
}

Result CBaseSocket::take_slot(const std::string& server, const ServerLimits& limits,
                              ServerSlots::Slot& slot) {
    // An idle connection of another kind must not keep this one waiting.
    if (limits.most > 0 && static_cast<std::int64_t>(services_.slots.used(server)) >= limits.most) {
        services_.reuse.drop_one(server);
    }
    Outcome<ServerSlots::Slot> got = services_.slots.acquire(server, limits, stop_);
    if (!got.ok()) return got.failure();
    slot = *std::move(got);
    return {};
}

Result CBaseSocket::connect_new(const ConnectPlan& plan, const std::string& server) {
    const bool direct = plan.proxy.kind == 0;
    const std::string& host = direct ? plan.host : plan.proxy.host;
    const std::uint16_t port = direct ? plan.port : plan.proxy.port;
    auto node = std::make_unique<CReuseNode>();
    node->key = reuse_key(plan);
    node->server = server;
    if (Result result = take_slot(server, plan.limits, node->slot); !result.ok()) return result;

    if (!SocketAddress::from_literal(host, port)) {
        log_.line(Direction::note, (direct ? "Connecting to " : "Connecting proxy to ") + server);
    }
    auto addresses = services_.resolver.resolve(host, port, stop_);
    if (!addresses.ok()) {
        if (addresses.failure().kind() != Kind::stopped)
            log_.line(Direction::error, addresses.failure().message());
        return addresses.failure();
    }
    auto socket = connect_any(*addresses, {host, !direct}, plan.timeout, stop_, log_);
    if (!socket.ok()) return socket.failure();
    node->stream = std::make_unique<SocketStream>(*std::move(socket));
    use(std::move(node));

    TunnelTarget target;
    target.host = plan.host;
    target.port = plan.port;
    std::uint16_t reported = 0;
    Result result = tunnel(plan.proxy, target, reported);
    if (!result.ok() && target.close_on_failure) close();
    return result;
}

Result CBaseSocket::tunnel(const ProxyPlan& proxy, const TunnelTarget& target, std::uint16_t& /*port*/) {
    const bool none_needed = proxy.kind == 0 || (proxy.kind == 10 && !target.want_connect);
    if (none_needed) return {};
    return {Code::unsupported, "Tunnels through this kind of proxy are not supported."};
}

Result CBaseSocket::send_all(std::span<const std::byte> bytes) {
    return node_->stream->write(bytes, from_now(timeout_));
}

Result CBaseSocket::receive_exactly(std::span<std::byte> into) {
    const auto until = from_now(timeout_);
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
