#include "bt/swarm/peer_link.h"

#include <array>

namespace vantlow {
namespace {

constexpr std::size_t read_size = 64 * 1024;
// One peer that sends without a pause must not keep the others waiting.
constexpr int reads_at_once = 4;

}  // namespace

PeerLink::PeerLink(std::uint32_t number, const SocketAddress& address, bool is_incoming,
                   net::Network& network, LinkOwner& owner, const LinkLimits& limits,
                   const LinkCrypto& crypto)
    : number_(number),
      address_(address),
      is_incoming_(is_incoming),
      network_(network),
      owner_(owner),
      crypto_(crypto),
      down_(limits.down, limits.down_group),
      up_(limits.up, limits.up_group),
      read_timer_(network.timers()),
      write_timer_(network.timers()),
      heard_(network.now()),
      said_(network.now()) {
    came = network.now();
}

void PeerLink::use(std::unique_ptr<net::Stream> stream) {
    stream_ = std::move(stream);
    stage_.emplace(*stream_, down_, up_);
}

void PeerLink::call(const PeerHandshake& handshake, CallForm form, bool at_once) {
    const auto done = [this](const Result& result) {
        if (!result.ok()) return end(result);
        is_connected_ = true;
        if (mse_) return agree();
        connected();
    };
    use(at_once ? network_.connect_at_once(address_, done) : network_.connect(address_, done));
    if (form == CallForm::plain) return send(handshake.bytes());
    // It goes with the request for the encryption, which saves the way there and back.
    mse_.emplace(*stage_, *crypto_.library, crypto_.torrent, crypto_.setting, handshake.bytes());
    if (form == CallForm::encrypted) mse_->refuse_short_secret();
    is_second_call_ = form == CallForm::encrypted_again;
}

std::optional<CallForm> PeerLink::next_call() const noexcept {
    if (!may_call_again_ || is_incoming_ || !is_connected_ || !mse_ || is_agreed_) return std::nullopt;
    if (mse_->streams().has_short_secret() && !is_second_call_) return CallForm::encrypted_again;
    if (crypto_.is_needed()) return std::nullopt;
    return CallForm::plain;
}

void PeerLink::take_call(std::unique_ptr<net::Stream> stream) {
    use(std::move(stream));
    is_connected_ = true;
    stream_->when_readable([this] { read_some(); });
}

// Until the keys are agreed neither side says anything else.
void PeerLink::agree() {
    const net::Step step = mse_->agree(network_.now());
    if (step.state == net::Step::State::again)
        return net::wait_for(step, *stream_, read_timer_, [this] { agree(); });
    if (step.state == net::Step::State::closed) return end({Code::transient, "The peer left."});
    if (step.state == net::Step::State::failed) return end(step.result());
    is_agreed_ = true;
    connected();
}

// The handshakes are over: messages go both ways. What the peer has sent may be here already.
void PeerLink::connected() {
    read_timer_.start(network_.now(), [this] { read_some(); });
    if (unsent() > 0) stream_->when_writable([this] { write_some(); });
    waits_to_write_ = unsent() > 0;
}

void PeerLink::send(std::string_view bytes) {
    if (has_ended_) return;
    if (sent_ > 0 && sent_ >= out_.size() / 2) {
        out_.erase(0, sent_);
        sent_ = 0;
    }
    out_ += bytes;
    // Sent from the loop, so that whoever sends is not called back within.
    if (!is_connected_ || waits_to_write_ || (mse_ && !is_agreed_)) return;
    waits_to_write_ = true;
    stream_->when_writable([this] { write_some(); });
}

void PeerLink::send_block(const PieceBlock& block, std::string_view bytes) {
    const PeerMessage message{.kind = PeerMessage::Kind::piece, .piece = block.piece, .begin = block.begin};
    send(message.head(bytes.size()));
    send(bytes);
}

void PeerLink::write_some() {
    waits_to_write_ = false;
    while (unsent() > 0) {
        const auto rest = std::as_bytes(std::span(out_)).subspan(sent_);
        const net::Step step = top().write(rest, network_.now());
        if (step.state == net::Step::State::again) {
            waits_to_write_ = true;
            net::wait_for(step, *stream_, write_timer_, [this] { write_some(); });
            break;
        }
        if (step.state != net::Step::State::moved) return end(step.result());
        sent_ += step.bytes;
        said_ = network_.now();
    }
    if (unsent() < enough_unsent / 2) owner_.drained(*this);
}

void PeerLink::go_on() {
    if (!is_paused_ || has_ended_) return;
    is_paused_ = false;
    read_timer_.start(network_.now(), [this] { read_some(); });
}

void PeerLink::read_some() {
    std::array<std::byte, read_size> room;
    for (int reads = 0; reads < reads_at_once; ++reads) {
        if (!owner_.may_receive()) {
            is_paused_ = true;
            return;
        }
        const net::Step step = top().read(room, network_.now());
        if (step.state == net::Step::State::again)
            return net::wait_for(step, *stream_, read_timer_, [this] { read_some(); });
        if (step.state == net::Step::State::closed) return end({Code::transient, "The peer left."});
        if (step.state == net::Step::State::failed) return end(step.result());
        heard_ = network_.now();
        if (!take({reinterpret_cast<const char*>(room.data()), step.bytes})) return;
    }
    // Bytes that the encryption holds are no news of the stream.
    if (mse_) {
        read_timer_.start(network_.now(), [this] { read_some(); });
    } else {
        stream_->when_readable([this] { read_some(); });
    }
}

// A call that does not begin as a plain one does begins with a key.
bool PeerLink::begins_encrypted(std::string_view bytes) {
    if (!is_incoming_ || is_greeted_ || mse_) return false;
    constexpr std::string_view plain = PeerHandshake::beginning;
    const std::string first = greeting_ + std::string(bytes.substr(0, plain.size()));
    if (plain.starts_with(std::string_view(first).substr(0, plain.size()))) return false;
    return crypto_.is_possible();
}

// False: the link has ended, and may not exist any more.
bool PeerLink::take(std::string_view bytes) {
    if (begins_encrypted(bytes)) {
        mse_.emplace(*stage_, *crypto_.library, std::vector{crypto_.torrent}, crypto_.setting);
        mse_->take(greeting_);
        mse_->take(bytes);
        greeting_.clear();
        agree();
        return false;
    }
    if (!is_greeted_) {
        const std::string_view mine = bytes.substr(0, PeerHandshake::size - greeting_.size());
        greeting_ += mine;
        bytes.remove_prefix(mine.size());
        if (greeting_.size() < PeerHandshake::size) return true;
        if (!take_handshake()) return false;
    }
    reader_.feed(bytes);
    for (;;) {
        PeerMessage message;
        switch (reader_.next(message)) {
            case PeerReader::Read::more:
                return true;
            case PeerReader::Read::bad:
                end({Code::unsupported, "The peer sends what is no message."});
                return false;
            case PeerReader::Read::message:
                break;
        }
        if (!owner_.heard(*this, message)) {
            end({Code::unsupported, "The peer sends what it must not send."});
            return false;
        }
        if (has_ended_) return false;
    }
}

bool PeerLink::take_handshake() {
    is_greeted_ = true;
    const auto handshake = PeerHandshake::parse(greeting_);
    if (crypto_.is_needed() && !mse_) {
        end({Code::unsupported, "The connection is not encrypted."});
        return false;
    }
    if (!handshake) {
        end({Code::unsupported, "This is not a BitTorrent peer."});
        return false;
    }
    if (owner_.greeted(*this, *handshake)) return true;
    end({Code::unsupported, "The peer is not wanted."});
    return false;
}

void PeerLink::close() noexcept {
    has_ended_ = true;
    read_timer_.cancel();
    write_timer_.cancel();
    if (stream_) stream_->close();
}

void PeerLink::end(const Result& why) {
    if (has_ended_) return;
    close();
    owner_.ended(*this, why);
}

}  // namespace vantlow
