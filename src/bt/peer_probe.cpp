#include "bt/peer_probe.h"

#include "base/codes.h"
#include "base/string_table.h"
#include "base/text.h"
#include "bt/mse.h"
#include "bt/torrent_settings.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

constexpr std::string_view protocol =
    "\x13"
    "BitTorrent protocol";
constexpr std::size_t handshake_size = 68;
constexpr std::size_t reserved_at = 20;
constexpr std::size_t torrent_at = 28;
constexpr std::size_t peer_id_at = 48;
constexpr unsigned char extension_bit = 0x10;  // of the sixth reserved byte
constexpr std::chrono::seconds listening{10};
// Bitfields of the largest torrents and metadata pieces are shorter.
constexpr std::uint32_t longest_message = 1024 * 1024;
constexpr int most_messages = 100;

std::string message_name(unsigned number) {
    constexpr std::string_view names[] = {"choke",    "unchoke", "interested", "not interested", "have",
                                          "bitfield", "request", "piece",      "cancel",         "port"};
    if (number < std::size(names)) return std::string(names[number]);
    switch (number) {  // BEP 6, BEP 10
        case 13:
            return "suggest piece";
        case 14:
            return "have all";
        case 15:
            return "have none";
        case 16:
            return "reject request";
        case 17:
            return "allowed fast";
        case extended_message:
            return "extended";
        default:
            return "message " + std::to_string(number);
    }
}

/// The connection to the peer with the encryption on it, if there is any.
class PeerChannel {
  public:
    PeerChannel(const AnnounceServices& services, LogSink& log, const StopSource& stop)
        : services_(services), socket_(services.connections, log, stop) {}

    Result open(const ConnectPlan& plan) { return socket_.open(plan); }
    /// The exchange, with this payload in its request.
    Result encrypt(const InfoHash& torrent, std::uint32_t setting, std::string payload);
    Result send(std::string_view bytes) {
        const std::string out = exchange_ ? exchange_->streams().write_payload(bytes) : std::string(bytes);
        return socket_.send_all(std::as_bytes(std::span(out)));
    }
    Result receive(std::size_t count, std::string& bytes, Clock::time_point until);
    [[nodiscard]] std::string encryption() const {
        if (!exchange_) return "none";
        return exchange_->streams().method() == static_cast<std::uint32_t>(CryptoMethod::rc4) ? "RC4"
                                                                                              : "plaintext";
    }

  private:
    Result receive_some(Clock::time_point until);

    const AnnounceServices& services_;
    CBaseSocket socket_;
    PeerBuffer buffer_;
    std::optional<MseExchange> exchange_;
};

Result PeerChannel::receive_some(Clock::time_point until) {
    std::array<std::byte, 16 * 1024> bytes;
    const Moved moved = socket_.receive(bytes, until);
    switch (moved.state) {
        case Moved::State::data:
            buffer_.append({reinterpret_cast<const char*>(bytes.data()), moved.bytes});
            return {};
        case Moved::State::quiet:
            return {Code::transient, std::string(message_text(Message::timeout))};
        case Moved::State::closed:
            return {Code::transient, "The peer closed the connection."};
        case Moved::State::failed:
            break;
    }
    return moved.code == Code::transient ? socket_failure(moved.system_error) : Result(moved.code);
}

Result PeerChannel::encrypt(const InfoHash& torrent, std::uint32_t setting, std::string payload) {
    const auto until = from_now(MseExchange::patience);
    exchange_.emplace(services_.libraries.secur, buffer_, torrent, setting, std::move(payload));
    for (;;) {
        std::string out;
        const MseStep step = exchange_->advance(out);
        if (!out.empty()) {
            if (Result result = socket_.send_all(std::as_bytes(std::span(out))); !result.ok()) return result;
        }
        if (step == MseStep::done) return {};
        if (step == MseStep::failed) {
            const bool library = services_.libraries.secur.DH_Create != nullptr;
            return {Code::unsupported, library ? "The peer does not take part in the encrypted handshake."
                                               : missing_library_text("libsecur")};
        }
        if (Result result = receive_some(until); !result.ok()) return result;
    }
}

Result PeerChannel::receive(std::size_t count, std::string& bytes, Clock::time_point until) {
    bytes.clear();
    while (bytes.size() < count) {
        if (buffer_.size() == 0) {
            if (Result result = receive_some(until); !result.ok()) return result;
        }
        const std::size_t most = count - bytes.size();
        if (exchange_) {
            bytes += exchange_->streams().read_payload(most);
        } else {
            bytes += buffer_.view().substr(0, most);
            buffer_.remove(std::min(most, buffer_.size()));
        }
    }
    return {};
}

Result take_handshake(PeerChannel& channel, const InfoHash& torrent, Clock::time_point until,
                      ProbeReport& report) {
    std::string bytes;
    if (Result result = channel.receive(handshake_size, bytes, until); !result.ok()) return result;
    if (!bytes.starts_with(protocol)) return {Code::unsupported, "This is no BitTorrent peer."};
    const std::string_view hash(reinterpret_cast<const char*>(torrent.data()), torrent.size());
    if (std::string_view(bytes).substr(torrent_at, torrent.size()) != hash)
        return {Code::unsupported, "The peer speaks of another torrent."};
    report.reserved = to_hex(std::as_bytes(std::span(bytes)).subspan(reserved_at, 8));
    report.peer_id = bytes.substr(peer_id_at);
    return {};
}

// Messages up to the peer's extension handshake. Silence is no failure: a peer need not say anything.
Result listen(PeerChannel& channel, Clock::time_point until, ProbeReport& report) {
    std::string bytes;
    for (int count = 0; count < most_messages && !report.extension; ++count) {
        if (Result result = channel.receive(4, bytes, until); !result.ok()) return result;
        const auto size = get_number<std::uint32_t>(bytes, 0);
        if (size > longest_message) return {Code::unsupported, "The peer's message is too long."};
        if (size == 0) continue;  // keeps the connection alive
        if (Result result = channel.receive(size, bytes, until); !result.ok()) return result;
        const auto number = static_cast<unsigned char>(bytes[0]);
        report.messages.push_back(message_name(number));
        if (number == extended_message && size > 2 && bytes[1] == 0)
            report.extension = parse_extension_handshake(std::string_view(bytes).substr(2));
    }
    return {};
}

Result converse(PeerChannel& channel, const AnnounceServices& services, const TorrentIdentity& job,
                const ConnectPlan& plan, ProbeMode mode, ProbeReport& report) {
    if (Result result = channel.open(plan); !result.ok()) return result;
    const std::string handshake = build_peer_handshake(job.info_hash, job.peer_id);
    Result result;
    if (mode == ProbeMode::encrypted) {
        const auto setting = static_cast<std::uint32_t>(services.settings.number(setting::crypto));
        result = channel.encrypt(job.info_hash, setting, handshake);
    } else {
        result = channel.send(handshake);
    }
    if (!result.ok()) return result;
    report.encryption = channel.encryption();
    const auto until = from_now(listening);
    if (Result taken = take_handshake(channel, job.info_hash, until, report); !taken.ok()) return taken;
    report.ok = true;
    const auto flags = static_cast<unsigned char>(from_hex(report.reserved)->at(5));
    if ((flags & extension_bit) == 0) return {};
    if (Result sent = channel.send(build_extension_handshake(0, job.port, u"Vantlow/2.95")); !sent.ok())
        return sent;
    return listen(channel, until, report);
}

}  // namespace

std::string build_peer_handshake(const InfoHash& torrent, std::string_view peer_id) {
    std::string bytes(protocol);
    bytes.append(8, '\0');
    bytes[reserved_at + 5] = static_cast<char>(extension_bit);
    bytes.append(reinterpret_cast<const char*>(torrent.data()), torrent.size());
    return bytes.append(peer_id);
}

ProbeReport probe_peer(const AnnounceServices& services, const TorrentIdentity& job, const std::string& host,
                       std::uint16_t port, ProbeMode mode, LogSink& log, const StopSource& stop) {
    ConnectPlan plan;
    plan.scheme = "peer";
    plan.host = host;
    plan.port = port;
    plan.proxy = job.proxy;
    plan.want_connect = true;
    plan.timeout = std::chrono::seconds(services.settings.number(setting::connect_timeout));
    plan.may_reuse = false;
    ProbeReport report;
    PeerChannel channel(services, log, stop);
    if (Result result = converse(channel, services, job, plan, mode, report); !result.ok())
        report.failure = result.message();
    return report;
}

}  // namespace vantlow
