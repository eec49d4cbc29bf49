#include "bt/web/seed_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vantlow {

using MessageKind = PeerMessage::Kind;

SeedStream::SeedStream(net::Network& network, Owner& owner, const SocketAddress& shown,
                       const InfoHash& torrent, const std::string& peer_id)
    : network_(network),
      owner_(&owner),
      shown_(shown),
      read_timer_(network.timers()),
      write_timer_(network.timers()) {
    PeerHandshake handshake;
    handshake.torrent = torrent;
    handshake.peer_id = peer_id;
    handshake.fast = true;  // refusals are said one by one
    out_ = handshake.bytes();
    say({.kind = MessageKind::have_all});
    say({.kind = MessageKind::unchoke});
}

void SeedStream::say(const PeerMessage& message) {
    if (owner_ == nullptr || has_left_) return;
    if (sent_ > 0 && sent_ >= out_.size() / 2) {
        out_.erase(0, sent_);
        sent_ = 0;
    }
    out_ += message.bytes();
    wake();
}

void SeedStream::give(const PieceBlock& block, std::string_view bytes) {
    say({.kind = MessageKind::piece,
         .piece = block.piece,
         .begin = block.begin,
         .length = block.length,
         .data = bytes});
}

void SeedStream::leave() {
    has_left_ = true;
    wake();
}

void SeedStream::hear(const PeerMessage& message) {
    const PieceBlock block{message.piece, message.begin, message.length};
    switch (message.kind) {
        case MessageKind::request:
            owner_->wanted(block);
            return;
        case MessageKind::cancel:
            if (!owner_->cancelled(block)) return;
            say({.kind = MessageKind::reject,
                 .piece = block.piece,
                 .begin = block.begin,
                 .length = block.length});
            return;
        case MessageKind::have:
            return owner_->has(message.piece);
        case MessageKind::bitfield:
            return owner_->has_these(message.data);
        case MessageKind::keep_alive:  // a peer that never says anything is left
            return say({.kind = MessageKind::keep_alive});
        default:
            return;
    }
}

// The swarm speaks.
net::Step SeedStream::write(std::span<const std::byte> from, Clock::time_point) {
    std::string_view bytes(reinterpret_cast<const char*>(from.data()), from.size());
    const std::size_t greeting = std::min(greeting_, bytes.size());
    greeting_ -= greeting;
    reader_.feed(bytes.substr(greeting));
    PeerMessage message;
    while (owner_ != nullptr && reader_.next(message) == PeerReader::Read::message) hear(message);
    return net::Step::moved(from.size());
}

net::Step SeedStream::read(std::span<std::byte> into, Clock::time_point) {
    const std::size_t some = std::min(into.size(), out_.size() - sent_);
    if (some == 0) return has_left_ ? net::Step::closed() : net::Step::again(net::Wants::readable);
    std::memcpy(into.data(), out_.data() + sent_, some);
    sent_ += some;
    return net::Step::moved(some);
}

// Callbacks come from the timers, never from inside of a call.
void SeedStream::wake() {
    if (readable_ && (has_left_ || sent_ < out_.size()))
        read_timer_.start(network_.now(), std::exchange(readable_, nullptr));
}

void SeedStream::when_readable(net::Callback call) {
    read_timer_.cancel();
    readable_ = std::move(call);
    wake();
}

void SeedStream::when_writable(net::Callback call) {
    write_timer_.cancel();
    if (call) write_timer_.start(network_.now(), std::move(call));
}

void SeedStream::close() noexcept {
    read_timer_.cancel();
    write_timer_.cancel();
    readable_ = nullptr;
    if (Owner* const owner = std::exchange(owner_, nullptr)) owner->left();
}

}  // namespace vantlow
