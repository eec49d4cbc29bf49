#include "transfer/connection/socket_stream.h"

#include <algorithm>

namespace vantlow {
namespace {

net::Step step_of(const IoStep& step, net::Wants wants) {
    switch (step.state) {
        case IoStep::State::moved:
            return net::Step::moved(step.bytes);
        case IoStep::State::would_block:
            return net::Step::again(wants);
        case IoStep::State::closed:
            return net::Step::closed();
        case IoStep::State::failed:
            break;
    }
    return net::Step::failed(step.system_error);
}

}  // namespace

Clock::time_point from_now(std::chrono::milliseconds time) {
    return Clock::now() + time;
}

std::chrono::milliseconds time_left(Clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

Result socket_failure(int system_error) {
    return {Code::transient, socket_error_text(system_error), system_error};
}

net::Step SocketStage::read(std::span<std::byte> into, Clock::time_point) {
    return step_of(socket_.read(into), net::Wants::readable);
}

net::Step SocketStage::write(std::span<const std::byte> from, Clock::time_point) {
    return step_of(socket_.write(from), net::Wants::writable);
}

Ready StageStream::wait(const net::Step& step, Clock::time_point until) {
    if (step.wants != net::Wants::time) {
        const Interest interest = step.wants == net::Wants::readable ? Interest::read : Interest::write;
        return wait_socket(socket_, interest, time_left(until), *stop_);
    }
    if (Clock::now() >= until) return Ready::timeout;
    return stop_->wait_for(time_left(std::min(step.at, until))) ? Ready::stopped : Ready::yes;
}

Moved ByteSource::fill(Conduit&, std::size_t, Clock::time_point) {
    return Moved::failed(Code::unsupported);
}

Moved StageStream::moved_by(const net::Step& step) noexcept {
    switch (step.state) {
        case net::Step::State::moved:
            return Moved::data(step.bytes);
        case net::Step::State::closed:
            return Moved::closed();
        case net::Step::State::again:
        case net::Step::State::failed:
            break;
    }
    return {Moved::State::failed, 0, step.code, step.system_error, step.why};
}

Moved StageStream::not_ready(Ready ready) const {
    switch (ready) {
        case Ready::timeout:
            return Moved::quiet();
        case Ready::stopped:
            return Moved::failed(stop_->reason());
        case Ready::yes:
        case Ready::failed:
            break;
    }
    return Moved::failed(Code::transient);
}

Moved StageStream::read(std::span<std::byte> into, Clock::time_point until) {
    return move([&] { return stage_.read(into, Clock::now()); }, until);
}

Moved SocketStream::fill(Conduit& conduit, std::size_t most, Clock::time_point until) {
    return move([&] { return step_of(conduit.receive(socket_, most), net::Wants::readable); }, until);
}

Result StageStream::write(std::span<const std::byte> from, Clock::time_point until) {
    if (stop_ == nullptr) return Code::transient;
    while (!from.empty()) {
        if (stop_->requested()) return stop_->reason();
        const net::Step step = stage_.write(from, Clock::now());
        if (step.state == net::Step::State::moved) {
            from = from.subspan(step.bytes);
            continue;
        }
        if (step.state != net::Step::State::again) return step.result();
        switch (wait(step, until)) {
            case Ready::yes:
                break;
            case Ready::timeout:
                return {Code::transient, "Timeout."};
            case Ready::stopped:
                return stop_->reason();
            case Ready::failed:
                return Code::transient;
        }
    }
    return {};
}

}  // namespace vantlow
