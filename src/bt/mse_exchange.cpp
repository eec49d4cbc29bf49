#include "bt/mse.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

// Other clients pad by up to 512 bytes, one more than this side.
constexpr std::size_t longest_foreign_padding = 512;

}  // namespace

MseExchange::MseExchange(const SecurTable& libraries, PeerBuffer& buffer, const InfoHash& torrent,
                         std::uint32_t setting, std::string payload)
    : buffer_(buffer),
      mse_(libraries, buffer),
      calls_(true),
      torrents_{torrent},
      setting_(setting),
      payload_(std::move(payload)) {}

MseExchange::MseExchange(const SecurTable& libraries, PeerBuffer& buffer, std::vector<InfoHash> torrents,
                         std::uint32_t setting)
    : buffer_(buffer),
      mse_(libraries, buffer),
      calls_(false),
      torrents_(std::move(torrents)),
      setting_(setting) {}

MseStep MseExchange::advance(std::string& out) {
    while (state_ != State::done && state_ != State::failed) {
        const MseStep result = step(out);
        if (result == MseStep::more) return MseStep::more;
        if (result == MseStep::failed) state_ = State::failed;
    }
    return state_ == State::done ? MseStep::done : MseStep::failed;
}

// Makes one step; after `done` state_ is the next step.
MseStep MseExchange::step(std::string& out) {
    if (state_ != State::pad) return calls_ ? step_as_caller(out) : step_as_called(out);
    if (expected_ > longest_foreign_padding) return MseStep::failed;
    std::string dropped;
    const MseStep result = mse_.take_handshake(expected_, dropped);
    if (result == MseStep::done) state_ = calls_ ? State::done : State::payload_size;
    return result;
}

MseStep MseExchange::step_as_caller(std::string& out) {
    MseStep result = MseStep::failed;
    switch (state_) {
        case State::begin:
            state_ = State::key;
            return mse_.send_public_key(out);
        case State::key:
            result = mse_.receive_yb(torrents_.front());
            if (result == MseStep::done && refuses_short_secret_ && mse_.has_short_secret())
                return MseStep::failed;
            if (result == MseStep::done)
                result = mse_.send_request(torrents_.front(), setting_, payload_, out);
            if (result == MseStep::done) state_ = State::sync;
            return result;
        case State::sync:
            result = mse_.find_vc(longest_foreign_padding);
            if (result == MseStep::done) state_ = State::head;
            return result;
        case State::head:
            result = mse_.read_select(expected_);
            if (result == MseStep::done) state_ = State::pad;
            return result;
        default:
            return MseStep::failed;
    }
}

MseStep MseExchange::step_as_called(std::string& out) {
    MseStep result = MseStep::failed;
    std::string bytes;
    switch (state_) {
        case State::begin:
            // The caller speaks first, so that a mere listener learns nothing.
            if (buffer_.size() < CBTMSE::key_size) return MseStep::more;
            state_ = State::key;
            return mse_.send_public_key(out);
        case State::key:
            result = mse_.receive_ya();
            if (result == MseStep::done) state_ = State::sync;
            return result;
        case State::sync:
            result = mse_.find_request(torrents_, longest_foreign_padding);
            if (result == MseStep::done) state_ = State::head;
            return result;
        case State::head:
            result = mse_.answer(setting_, expected_, out);
            if (result == MseStep::done) state_ = State::pad;
            return result;
        case State::payload_size:
            result = mse_.take_handshake(2, bytes);
            if (result != MseStep::done) return result;
            expected_ = get_number<std::uint16_t>(bytes, 0);
            state_ = State::payload;
            return result;
        case State::payload:
            result = mse_.take_handshake(expected_, payload_);
            if (result == MseStep::done) state_ = State::done;
            return result;
        default:
            return MseStep::failed;
    }
}

}  // namespace vantlow
