// Announcing over HTTP (BEP 3).
#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"
#include "bt/announce_thread.h"
#include "bt/torrent_settings.h"
#include "platform/udp_socket.h"
#include "store/address.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/http/client.h"

namespace vantlow {
namespace {

constexpr const char16_t* agent = u"BitTorrent/4.4.1";
// An answer with a thousand peers takes less than a tenth of this.
constexpr std::size_t longest_answer = 2 * 1024 * 1024;
// Names among the peers that are looked up; each may take seconds.
constexpr std::size_t most_names = 10;

}  // namespace

Outcome<CBETrackerRespond> CBTAnnounceThread::ask_http(const std::string& url, AnnounceEvent event) {
    if (!istarts_with(url, "http://") && !istarts_with(url, "https://")) {
        log_.line(Direction::error, message_text(Message::invalid_url));
        return Result(Code::invalid_url, "The tracker's address cannot be used: " + without_keys(url));
    }
    const std::string address = http_announce_url(url, job_, event, numwant());
    std::string body;
    bool second_attempt = false;
    Result result = fetch(address, false, active_stop(), body);
    // A goodbye that failed is not said twice: the thread is stopping.
    if (!result.ok() && !stop_.requested() && !active_stop().requested()) {
        second_attempt = true;
        result = fetch(address, true, active_stop(), body);
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

Outcome<SwarmCounts> CBTAnnounceThread::scrape_http(const std::string& url, const StopSource& stop) {
    const std::string address = http_scrape_url(url, job_.info_hash);
    if (address.empty())
        return Result(Code::unsupported, "This tracker does not report the number of peers (scrape).");
    std::string body;
    if (Result result = fetch(address, false, stop, body); !result.ok()) return result;
    CBEncode parser;
    parser.load_memory(body);
    const auto value = parser.parse_value();
    const CBEDictionary* const dictionary = as_dictionary(value.get());
    if (dictionary == nullptr) return Result(Code::server_error, "The tracker's answer cannot be read.");
    return read_scrape_answer(*dictionary, job_.info_hash);
}

// Makes one request, follows redirects, and reads the whole body of the answer.
Result CBTAnnounceThread::fetch(const std::string& url, bool second_attempt, const StopSource& stop,
                                std::string& body) {
    HttpErrand errand;
    errand.address = to_utf16(url);
    errand.http.agent = agent;
    errand.http.extra = {"Accept-Encoding: gzip"};
    errand.with_cookies = false;
    errand.shown = without_keys;
    errand.timeout = std::chrono::seconds(services_.settings.number(setting::connect_timeout));
    errand.trust.verify = services_.settings.flag(setting::verify_peer);
    errand.trust.ca_file = services_.settings.text(setting::ca_file);
    errand.proxy = job_.proxy;
    errand.way = job_.way;
    if (errand.proxy.is_used())
        add_login(errand.proxy, services_.libraries, &services_.connections.memory.of<LoginMemory>());
    // The second attempt uses the other address family, where the tracker has it; the first uses whichever
    // answers.
    if (second_attempt && !job_.proxy.is_used())
        errand.adjust = [this](ConnectPlan& plan) { prefer_ipv6(plan); };
    auto document =
        fetch_document({services_.connections, services_.libraries, log_, stop}, errand, longest_answer);
    if (!document.ok()) return document.failure();
    body = std::move(document->bytes);
    return {};
}

void CBTAnnounceThread::prefer_ipv6(ConnectPlan& plan) {
    const auto addresses =
        services_.connections.resolver.resolve(plan.host, plan.port, active_stop(), job_.way);
    if (!addresses.ok()) return;
    const auto found = std::find_if(addresses->begin(), addresses->end(),
                                    [](const SocketAddress& address) { return address.is_ipv6(); });
    if (found != addresses->end()) plan.host = found->host();
}

// Learns this side's address towards the tracker, where there is a port that others can connect to.
void CBTAnnounceThread::learn_own_address(const std::string& url) {
    const auto target = parse_target(to_utf16(url));
    if (job_.port == 0 || job_.proxy.is_used() || !target) return;
    const auto addresses =
        services_.connections.resolver.resolve(target->host, target->port, active_stop(), job_.way);
    if (!addresses.ok()) return;
    for (const SocketAddress& address : *addresses) {
        const auto towards = UdpSocket::connect(address, job_.way);  // sends nothing
        if (const auto local = towards.ok() ? towards->local_address() : std::nullopt)
            note_own_address(*local);
    }
}

void CBTAnnounceThread::resolve_named(CBETrackerRespond& respond) {
    // A proxy may be used just so that nobody sees a look-up of these names.
    if (job_.proxy.is_used()) return;
    respond.named.resize(std::min(respond.named.size(), most_names));
    for (const NamedPeer& peer : respond.named) {
        const auto addresses =
            services_.connections.resolver.resolve(peer.host, peer.port, active_stop(), job_.way);
        if (!addresses.ok()) continue;
        for (const SocketAddress& address : *addresses) {
            (address.is_ipv6() ? respond.ipv6 : respond.ipv4).push_back(address);
        }
    }
}

}  // namespace vantlow
