// Announcing over UDP (BEP 15).
#include "base/string_table.h"
#include "base/text.h"
#include "bt/announce_thread.h"
#include "bt/udp_channel.h"
#include "bt/wire.h"
#include "platform/process.h"
#include "store/address.h"

namespace vantlow {
namespace {

constexpr std::size_t action_at = 0;
constexpr std::size_t text_at = 8;
constexpr std::size_t connection_at = 8;
// A head without anything behind it is the answer of a tracker that does not serve the torrent.
constexpr std::chrono::milliseconds wait_for_rest{3000};
// A request is sent again when no answer came for a quarter of the whole wait, and once more.
constexpr int sends = 3;
constexpr const char* short_answer = "The tracker's answer is too short: it may not serve this torrent.";

// An error may be shorter than the expected answer.
bool is_error(std::string_view answer) noexcept {
    return answer.size() >= text_at && get_number<std::uint32_t>(answer, action_at) == udp_tracker::error;
}

std::uint32_t random_number() {
    unsigned char bytes[16];
    random_guid(bytes);
    return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U | std::uint32_t{bytes[2]} << 8U |
           bytes[3];
}

}  // namespace

void CBTAnnounceThread::make_transaction() {
    while (transaction_ == 0) transaction_ = random_number();
}

Result CBTAnnounceThread::udp_open(UdpChannel& channel, const std::string& url) {
    const auto server = parse_target(to_utf16(url));
    if (!server) {
        log_.line(Direction::error, message_text(Message::invalid_url));
        return {Code::invalid_url, why_no_target(to_utf16(url))};
    }
    const std::chrono::seconds timeout(services_.settings.number(setting::connect_timeout));
    if (Result result = channel.open(server->host, server->port, job_.proxy, timeout); !result.ok())
        return result;
    if (const auto local = channel.local_address()) note_own_address(*local);
    if (Result result = udp_connect(channel); !result.ok()) return result;
    log_.line(Direction::note, message_text(Message::connected));
    make_transaction();
    return {};
}

Outcome<CBETrackerRespond> CBTAnnounceThread::ask_udp(const std::string& url, AnnounceEvent event) {
    UdpChannel channel(services_.connections, log_, active_stop(), job_.way);
    if (Result result = udp_open(channel, url); !result.ok()) return result;
    auto answer = udp_exchange(
        channel, udp_tracker::announce_request(connection_, transaction_, job_, event, numwant()),
        udp_tracker::announce_answer_size, 2);
    if (!answer.ok()) return answer.failure();
    auto respond = read_udp_announce(*answer, transaction_, channel.is_ipv6());
    if (!respond.ok()) log_.line(Direction::error, respond.failure().message());
    return respond;
}

Outcome<SwarmCounts> CBTAnnounceThread::scrape_udp(const std::string& url) {
    UdpChannel channel(services_.connections, log_, active_stop(), job_.way);
    if (Result result = udp_open(channel, url); !result.ok()) return result;
    auto answer =
        udp_exchange(channel, udp_tracker::scrape_request(connection_, transaction_, job_.info_hash),
                     udp_tracker::scrape_answer_size, 2);
    if (!answer.ok()) return answer.failure();
    return read_udp_scrape(*answer, transaction_);
}

Result CBTAnnounceThread::udp_connect(UdpChannel& channel) {
    make_transaction();
    answered_.clear();
    auto answer = udp_exchange(channel, udp_tracker::connect_request(transaction_),
                               udp_tracker::connect_answer_size, 0);
    if (!answer.ok()) return answer.failure();
    if (Result result = check_udp_answer(*answer, udp_tracker::connect, transaction_); !result.ok()) {
        log_.line(Direction::error, result.message());
        return result;
    }
    answered_ = answer->substr(0, connection_at);
    connection_ = answer->substr(connection_at, 8);
    transaction_ = 0;
    return {};
}

// Receives the next datagram, except for a second answer to a connect request that was sent twice.
Outcome<std::string> CBTAnnounceThread::receive_fresh(UdpChannel& channel, std::size_t most,
                                                      Clock::time_point until) {
    for (;;) {
        auto datagram = channel.receive(most, until);
        if (!datagram.ok() || answered_.empty() || !datagram->starts_with(answered_)) return datagram;
    }
}

// Sends a request and collects datagrams until `wanted` bytes are in, from at most `receives` of them (0: any
// number within the time).
Outcome<std::string> CBTAnnounceThread::udp_exchange(UdpChannel& channel, const std::string& request,
                                                     std::size_t wanted, int receives) {
    const auto most = static_cast<std::size_t>(services_.settings.number(setting::connection_buffer)) * 1024;
    auto until = from_now(services_.udp_timeout);
    const auto step = std::chrono::duration_cast<std::chrono::milliseconds>(services_.udp_timeout) / 4;
    std::string answer;
    int received = 0;
    for (int sent = 0;;) {
        if (answer.empty() && sent < sends) {
            if (Result result = channel.send(request); !result.ok()) return result;
            ++sent;
        }
        const bool again = answer.empty() && sent < sends;
        const auto wait = again ? std::min(from_now(step * sent), until) : until;
        auto datagram = receive_fresh(channel, most, wait);
        if (!datagram.ok()) {
            if (datagram.failure().code == Code::stopped) return datagram.failure();
            const bool silent = datagram.failure().system_error == 0;
            if (silent && again && Clock::now() < until) continue;
            const bool too_short = silent && !answer.empty();
            if (silent) log_.line(Direction::error, datagram.failure().message());
            return too_short ? Result(Code::server_error, short_answer) : datagram.failure();
        }
        answer += *datagram;
        const std::chrono::milliseconds whole = services_.udp_timeout;
        until = from_now(answer.size() > text_at ? whole : std::min(wait_for_rest, whole));
        if (answer.size() >= wanted || is_error(answer)) return answer;
        if (++received == receives) return Result(Code::server_error, short_answer);
        if (answer.size() > most) return Result(Code::server_error, "The tracker's answer is too long.");
    }
}

}  // namespace vantlow
