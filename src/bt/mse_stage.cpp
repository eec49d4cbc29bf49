#include "bt/mse_stage.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vantlow {
namespace {

// As much as a link offers and reads in one go: what is done once a call is felt with a cipher this quick.
constexpr std::size_t sealed_at_once = 64 * 1024;

}  // namespace

net::Step MseStage::read_below(Clock::time_point now) {
    std::array<std::byte, 16 * 1024> room;
    const net::Step step = below_.read(room, now);
    if (step.state == net::Step::State::moved)
        buffer_.append({reinterpret_cast<const char*>(room.data()), step.bytes});
    return step;
}

net::Step MseStage::flush(Clock::time_point now) {
    while (!unsent_.empty()) {
        const net::Step step = below_.write(std::as_bytes(std::span(unsent_)), now);
        if (step.state != net::Step::State::moved) return step;
        unsent_.erase(0, step.bytes);
    }
    return net::Step::moved(1);
}

net::Step MseStage::agree(Clock::time_point now) {
    if (failure_) return *failure_;
    if (began_ == Clock::time_point{}) began_ = now;
    while (!is_agreed_) {
        const MseStep made = exchange_.advance(unsent_);
        const net::Step sent = flush(now);
        const bool is_late = now - began_ > MseExchange::patience;
        if (made == MseStep::failed || (is_late && made != MseStep::done)) {
            failure_ =
                net::Step::failed(Code::unsupported, "The peer does not answer the encrypted handshake.");
            return *failure_;
        }
        if (sent.state != net::Step::State::moved) return sent;
        if (made == MseStep::done) {
            is_agreed_ = true;
            break;
        }
        const net::Step step = read_below(now);
        if (step.state != net::Step::State::moved) return step;
    }
    return flush(now);
}

net::Step MseStage::read(std::span<std::byte> into, Clock::time_point now) {
    if (const net::Step step = agree(now); step.state != net::Step::State::moved) return step;
    const std::string& first = exchange_.payload();
    if (given_ < first.size() && !exchange_.calls()) {
        const std::size_t some = std::min(into.size(), first.size() - given_);
        std::memcpy(into.data(), first.data() + given_, some);
        given_ += some;
        return net::Step::moved(some);
    }
    if (buffer_.size() > 0) {  // what came with the end of the exchange
        const std::string plain = exchange_.streams().read_payload(into.size());
        std::memcpy(into.data(), plain.data(), plain.size());
        return net::Step::moved(plain.size());
    }
    const net::Step step = below_.read(into, now);
    if (step.state == net::Step::State::moved) exchange_.streams().decrypt(into.first(step.bytes));
    return step;
}

net::Step MseStage::write(std::span<const std::byte> from, Clock::time_point now) {
    if (const net::Step step = agree(now); step.state != net::Step::State::moved) return step;
    if (is_plain()) return below_.write(from, now);
    if (gone_ == sealed_.size()) {
        gone_ = 0;
        exchange_.streams().encrypt(from.first(std::min(from.size(), sealed_at_once)), sealed_);
    }
    const auto rest = std::span<const std::byte>(sealed_).subspan(gone_);
    const net::Step step = below_.write(rest.first(std::min(rest.size(), from.size())), now);
    if (step.state == net::Step::State::moved) gone_ += step.bytes;
    if (gone_ == sealed_.size() && from.size() < sealed_at_once) {  // many links are quiet most of the time
        sealed_ = {};
        gone_ = 0;
    }
    return step;
}

}  // namespace vantlow
