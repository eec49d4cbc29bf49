#include "bt/peer_probe.h"

#include "base/string_table.h"
#include "bt/mse.h"
#include "bt/torrent_settings.h"

namespace vantlow {
namespace {

constexpr std::chrono::seconds listening{10};

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
            return {Code::unsupported, library ? "The peer does not answer the encrypted handshake."
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

// One part of what the peer says.
Result hear(PeerChannel& channel, PeerListener& peer, Clock::time_point until) {
    std::string part;
    if (Result result = channel.receive(peer.wanted(), part, until); !result.ok()) return result;
    return peer.take(part);
}

Result converse(PeerChannel& channel, const AnnounceServices& services, const TorrentIdentity& job,
                const ConnectPlan& plan, ProbeMode mode, PeerListener& peer, std::string& encryption) {
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
    encryption = channel.encryption();
    const auto until = from_now(listening);
    result = hear(channel, peer, until);
    if (!result.ok() || peer.wanted() == 0) return result;
    result = channel.send(build_extension_handshake(0, job.port, u"Vantlow/2.95"));
    while (result.ok() && peer.wanted() != 0) result = hear(channel, peer, until);
    return result;
}

}  // namespace

ProbeReport probe_peer(const AnnounceServices& services, const TorrentIdentity& job, const std::string& host,
                       std::uint16_t port, ProbeMode mode, LogSink& log, const StopSource& stop) {
    ConnectPlan plan;
    plan.scheme = "peer";
    plan.host = host;
    plan.port = port;
    plan.proxy = job.proxy;
    plan.way = job.way;
    plan.want_connect = true;
    plan.timeout = std::chrono::seconds(services.settings.number(setting::connect_timeout));
    plan.may_reuse = false;
    ProbeReport report;
    PeerChannel channel(services, log, stop);
    PeerListener peer(job.info_hash);
    const Result result = converse(channel, services, job, plan, mode, peer, report.encryption);
    static_cast<PeerWords&>(report) = peer.words();
    if (!result.ok()) report.failure = result.message();
    return report;
}

}  // namespace vantlow
