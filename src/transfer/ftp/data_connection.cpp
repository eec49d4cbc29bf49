#include "transfer/ftp/data_connection.h"

#include "base/text.h"

namespace vantlow {
namespace {

// A server that was told where to connect does so at once or not at all.
constexpr std::chrono::milliseconds longest_wait_for_server{20000};

bool speaks_ipv6(const CBaseSocket& control, const FtpPlan& plan) {
    // The server's address is known to the proxy alone where there is one; an address in the plan tells it as
    // well.
    if (plan.connect.proxy.is_used()) return plan.connect.host.find(':') != std::string::npos;
    const auto peer = control.peer_address();
    return peer && peer->is_ipv6();
}

// The host of the control connection as this connection knows it.
std::string control_host(const CBaseSocket& control, const FtpPlan& plan) {
    if (plan.connect.proxy.is_used()) return plan.connect.host;
    const auto peer = control.peer_address();
    return peer ? peer->host() : plan.connect.host;
}

std::string commas(const std::array<std::uint8_t, 4>& a) {
    return print("%d,%d,%d,%d", a[0], a[1], a[2], a[3]);
}

}  // namespace

std::string port_argument(const std::array<std::uint8_t, 4>& address, std::uint16_t port) {
    return print("%s,%d,%d", commas(address).c_str(), port / 256, port % 256);
}

void FtpDataConnection::close() {
    socket_.close();
    listener_.close();
    waits_ = false;
}

Result FtpDataConnection::prepare(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan,
                                  FtpSession& session) {
    close();
    // Nobody can connect to this side through a proxy.
    const bool can_wait = !plan.connect.proxy.is_used();
    const bool passive_first = plan.passive && !session.no_passive;
    if (!passive_first && can_wait) {
        Result result = active(control_socket, control, plan);
        if (result.ok() || result.kind() == Kind::stopped || !control_socket.is_open()) return result;
        return session.no_passive ? result : passive(control_socket, control, plan, session);
    }
    Result result = passive(control_socket, control, plan, session);
    if (result.ok() || result.kind() == Kind::stopped || !control_socket.is_open() || !can_wait)
        return result;
    close();
    Result other = active(control_socket, control, plan);
    if (other.ok()) session.no_passive = true;
    return other.ok() ? std::move(other) : std::move(result);
}

// "227": the address is one that only the server's own network knows when it stands behind a router; then,
// and also where it is none at all or somebody else's, the control connection's serves.
Result FtpDataConnection::ask_pasv(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan,
                                   ConnectPlan& to) {
    FtpReply reply;
    if (Result result = control.ask("PASV", reply, from_now(plan.connect.timeout)); !result.ok())
        return result;
    if (reply.code != 227) return {Code::unsupported, reply.text()};
    const auto where = parse_pasv(reply);
    if (!where) return {Code::unsupported, reply.text()};
    to.port = where->port;
    to.host = control_host(control_socket, plan);
    const auto peer = control_socket.peer_address();
    const bool direct = !plan.connect.proxy.is_used() && peer && !peer->is_ipv6();
    if (direct && may_lead_to(where->ipv4, peer->ipv4(), plan.follows_pasv)) {
        const auto& a = where->ipv4;
        to.host = print("%d.%d.%d.%d", a[0], a[1], a[2], a[3]);
    }
    return {};
}

Result FtpDataConnection::ask_epsv(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan,
                                   ConnectPlan& to) {
    FtpReply reply;
    if (Result result = control.ask("EPSV", reply, from_now(plan.connect.timeout)); !result.ok())
        return result;
    const auto port = reply.code == 229 ? parse_epsv(reply) : std::nullopt;
    if (!port) return {Code::unsupported, reply.text()};
    to.port = *port;
    to.host = control_host(control_socket, plan);
    return {};
}

Result FtpDataConnection::passive(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan,
                                  FtpSession& session) {
    ConnectPlan to = plan.connect;
    to.scheme = "ftp-data";
    to.may_reuse = false;
    to.limits = {};  // it belongs to its control connection, which counts
    const bool ipv6 = speaks_ipv6(control_socket, plan);
    Result last{Code::transient, "The server offers no data connection."};
    for (const bool extended : {ipv6, !ipv6}) {
        if (extended ? session.no_epsv : (session.no_pasv || ipv6)) continue;
        Result result = extended ? ask_epsv(control_socket, control, plan, to)
                                 : ask_pasv(control_socket, control, plan, to);
        if (result.code == Code::unsupported) {
            (extended ? session.no_epsv : session.no_pasv) = true;
            last = {Code::transient, "The server offers no data connection: " + result.message()};
            continue;
        }
        if (!result.ok()) return result;
        return socket_.open(to);
    }
    return last;
}

Result FtpDataConnection::active(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan) {
    auto local = control_socket.local_address();
    if (!local) return {Code::transient, "The local address is unknown."};
    const bool ipv6 = local->is_ipv6();
    local->set_port(0);
    auto listener = TcpListener::listen(*local);
    if (!listener.ok()) return listener.failure();
    listener_ = *std::move(listener);
    const auto at = listener_.address();
    if (!at) return {Code::transient, "The local port is unknown."};
    const std::string command =
        ipv6 ? print("EPRT |2|%s|%u|", at->host().c_str(), static_cast<unsigned>(at->port()))
             : "PORT " + port_argument(plan.mapped_address.value_or(at->ipv4()), at->port());
    FtpReply reply;
    if (Result result = control.ask(command, reply, from_now(plan.connect.timeout)); !result.ok())
        return result;
    if (!reply.is_success()) {
        listener_.close();
        return {Code::transient, "The server does not connect back: " + reply.text()};
    }
    waits_ = true;
    return {};
}

// Takes the server's connection and nobody else's.
Result FtpDataConnection::take_connection(CBaseSocket& control_socket, const FtpPlan& plan) {
    const auto server = control_socket.peer_address();
    const auto until = from_now(std::min(plan.connect.timeout, longest_wait_for_server));
    for (;;) {
        auto socket = listener_.accept(time_left(until), stop_);
        if (!socket.ok()) return socket.failure();
        const auto peer = socket->peer_address();
        if (!server || !peer || peer->host() != server->host()) continue;
        socket_.adopt(*std::move(socket), plan.connect.timeout);
        listener_.close();
        waits_ = false;
        return {};
    }
}

Result FtpDataConnection::begin(CBaseSocket& control_socket, const FtpPlan& plan, const FtpSession& session,
                                bool is_end_known) {
    if (waits_) {
        if (Result result = take_connection(control_socket, plan); !result.ok()) return result;
    }
    if (!plan.tls) return {};
    TlsPlan tls = *plan.tls;
    tls.host = plan.connect.host;
    tls.session_key = session.tls_session;
    // Whoever stands between may close the connection, and the server's reply only tells that it sent all:
    // the end is believed where the size bears it out.
    tls.end_without_notice = is_end_known;
    return socket_.start_tls(tls);
}

}  // namespace vantlow
