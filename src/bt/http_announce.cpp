// Announcing over HTTP (BEP 3).
#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"
#include "bt/announce_thread.h"
#include "bt/torrent_settings.h"
#include "platform/process.h"
#include "platform/udp_socket.h"
#include "store/address.h"
#include "transfer/http/conversation.h"
#include "transfer/http/login.h"

namespace vantlow {
namespace {

constexpr std::string_view agent = "BitTorrent/4.4.1";
constexpr int most_redirects = 20;
// A thousand peers take less than a tenth of it.
constexpr std::size_t longest_answer = 2 * 1024 * 1024;
// Names among the peers that are looked up; each may take seconds.
constexpr std::size_t most_names = 10;

HttpRequest make_request(const Target& target, const ProxyPlan& proxy) {
    HttpRequest request;
    request.scheme = target.scheme;
    request.host = target.host_text();
    request.port = target.port;
    request.explicit_port = target.explicit_port;
    request.path = target.path;
    request.shown_path = without_keys("://host" + target.path).substr(7);
    request.user = to_ansi(target.user);
    request.password = to_ansi(target.password);
    request.through_proxy = proxy.takes_requests(target.scheme == "https");
    request.proxy_user = proxy.user;
    request.proxy_password = proxy.password;
    request.agent = agent;
    request.extra = {"Accept-Encoding: gzip"};
    return request;
}

Result read_body(HttpConversation& conversation, Clock::time_point until, std::string& body) {
    std::vector<std::byte> buffer(32 * 1024);
    for (;;) {
        const Moved moved = conversation.read(buffer, until);
        switch (moved.state) {
            case Moved::State::data:
                break;
            case Moved::State::closed:
                return {};
            case Moved::State::quiet:
                return {Code::transient, std::string(message_text(Message::timeout))};
            case Moved::State::failed:
                return {moved.code, {}, moved.system_error};
        }
        if (body.size() + moved.bytes > longest_answer)
            return {Code::server_error, "The tracker's answer is too long."};
        body.append(reinterpret_cast<const char*>(buffer.data()), moved.bytes);
    }
}

bool is_redirect(const HttpHead& head) noexcept {
    return head.status >= 300 && head.status < 400 && head.status != 304 && !head.location.empty();
}

}  // namespace

Outcome<CBETrackerRespond> CBTAnnounceThread::ask_http(const std::string& url, AnnounceEvent event) {
    const std::string address = http_announce_url(url, job_, event, numwant());
    std::string body;
    bool second_attempt = false;
    Result result = fetch(address, false, body);
    if (!result.ok() && !active_stop().requested()) {
        second_attempt = true;
        body.clear();
        result = fetch(address, true, body);
    }
    if (!result.ok()) return result;
    CBEncode parser;
    parser.load_memory(body);
    const auto value = parser.parse_value();
    const CBEDictionary* const dictionary = as_dictionary(value.get());
    auto respond = dictionary != nullptr ? read_tracker_answer(*dictionary, second_attempt) : std::nullopt;
    if (!respond) {
        Result refused(Code::server_error, "The tracker's answer cannot be read.");
        log_.line(Direction::error, refused.message());
        return refused;
    }
    resolve_named(*respond);
    learn_own_address(url);
    return *std::move(respond);
}

// One request, redirects followed, and the whole body of the answer.
Result CBTAnnounceThread::fetch(const std::string& url, bool second_attempt, std::string& body) {
    std::string address = url;
    for (int redirects = 0; redirects <= most_redirects; ++redirects) {
        const auto target = parse_target(to_utf16(address));
        if (!target || (target->scheme != "http" && target->scheme != "https")) {
            log_.line(Direction::error, message_text(Message::invalid_url));
            return {Code::invalid_url, "The tracker's address cannot be used: " + without_keys(address)};
        }
        const ConnectPlan plan = plan_for(*target, second_attempt);
        CBaseSocket socket(services_.connections, log_, active_stop());
        HttpConversation conversation(socket, log_);
        HttpHead head;
        if (Result result = ask(conversation, plan, *target, head); !result.ok()) return result;
        if (!is_redirect(head)) return take_answer(conversation, head, plan.timeout, body);
        address = resolve_redirect(head.location,
                                   {target->scheme, target->host_text(), target->port, target->path});
        log_.line(Direction::note, message(Message::redirect_to, {without_keys(address)}));
        conversation.skip_body();
        conversation.finish();
    }
    return Code::too_many_redirects;
}

ConnectPlan CBTAnnounceThread::plan_for(const Target& target, bool second_attempt) {
    const bool secured = target.scheme == "https";
    ConnectPlan plan;
    plan.scheme = target.scheme;
    plan.host = target.host;
    plan.port = target.port;
    plan.proxy = job_.proxy;
    if (plan.proxy.is_used())
        add_login(plan.proxy, services_.libraries, &services_.connections.memory.of<LoginMemory>());
    plan.timeout = std::chrono::seconds(services_.settings.number(setting::connect_timeout));
    plan.want_connect = secured;
    if (secured) plan.tls = trust_for(target.host);
    // The other family, where the tracker has it: the first attempt takes whichever answers.
    if (second_attempt && !job_.proxy.is_used()) prefer_ipv6(plan);
    return plan;
}

Result CBTAnnounceThread::take_answer(HttpConversation& conversation, const HttpHead& head,
                                      std::chrono::milliseconds timeout, std::string& body) {
    const auto buffer = static_cast<std::size_t>(services_.settings.number(setting::data_buffer)) * 1024;
    Result result;
    if (head.status < 200 || head.status >= 300) {
        result = {Code::server_error,
                  std::string(message_text(Message::http_server_error)) + " (" + status_text(head) + ")"};
    }
    if (result.ok())
        result = conversation.begin_body(head.coding, UnpackOperations::of(services_.libraries.ssh), buffer);
    if (result.ok()) result = read_body(conversation, from_now(timeout), body);
    if (!result.ok() && result.kind() != Kind::stopped) log_.line(Direction::error, result.message());
    if (result.ok()) conversation.finish();
    return result;
}

// Asks once, with the logins that the tracker and the proxy want.
Result CBTAnnounceThread::ask(HttpConversation& conversation, const ConnectPlan& plan, const Target& target,
                              HttpHead& head) {
    const HttpRequest request = make_request(target, job_.proxy);
    const LoginIdentity identity{target.scheme + "://" + target.host + ":" + std::to_string(target.port),
                                 request.user, request.password};
    SchemeLogin server(identity, LoginOperations::of(services_.libraries),
                       &services_.connections.memory.of<LoginMemory>());
    std::unique_ptr<HttpLogin> proxy;
    if (request.through_proxy && plan.proxy.make_login) proxy = plan.proxy.make_login();
    return conversation.ask(plan, request, head, {&server, proxy.get()});
}

TlsPlan CBTAnnounceThread::trust_for(const std::string& host) const {
    TlsPlan trust;
    trust.verify = services_.settings.flag(setting::verify_peer);
    trust.ca_file = services_.settings.text(setting::ca_file);
    trust.protocol = "http/1.1";
    trust.host = host;
    return trust;
}

void CBTAnnounceThread::prefer_ipv6(ConnectPlan& plan) {
    const auto addresses = services_.connections.resolver.resolve(plan.host, plan.port, active_stop());
    if (!addresses.ok()) return;
    const auto found = std::find_if(addresses->begin(), addresses->end(),
                                    [](const SocketAddress& address) { return address.is_ipv6(); });
    if (found != addresses->end()) plan.host = found->host();
}

// The tracker tells others this side's address towards it, if there is a port to connect to.
void CBTAnnounceThread::learn_own_address(const std::string& url) {
    const auto target = parse_target(to_utf16(url));
    if (job_.port == 0 || job_.proxy.is_used() || !target) return;
    const auto addresses = services_.connections.resolver.resolve(target->host, target->port, active_stop());
    if (!addresses.ok()) return;
    for (const SocketAddress& address : *addresses) {
        const auto towards = UdpSocket::connect(address);  // sends nothing
        if (const auto local = towards.ok() ? towards->local_address() : std::nullopt)
            note_own_address(*local);
    }
}

void CBTAnnounceThread::resolve_named(CBETrackerRespond& respond) {
    // A proxy may be there so that nobody sees these names asked for.
    if (job_.proxy.is_used()) return;
    respond.named.resize(std::min(respond.named.size(), most_names));
    for (const NamedPeer& peer : respond.named) {
        const auto addresses = services_.connections.resolver.resolve(peer.host, peer.port, active_stop());
        if (!addresses.ok()) continue;
        for (const SocketAddress& address : *addresses) {
            (address.is_ipv6() ? respond.ipv6 : respond.ipv4).push_back(address);
        }
    }
}

}  // namespace vantlow
