#include "transfer/connection/socket_stream.h"

#include <algorithm>

namespace vantlow {

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

Moved SocketStream::read(std::span<std::byte> into, Clock::time_point until) {
    if (stop_ == nullptr) return Moved::failed(Code::transient);
    for (;;) {
        // A stop must not have to wait for a server that sends without a pause.
        if (stop_->requested()) return Moved::failed(stop_->reason());
        const IoStep step = socket_.read(into);
        switch (step.state) {
            case IoStep::State::moved:
                return Moved::data(step.bytes);
            case IoStep::State::closed:
                return Moved::closed();
            case IoStep::State::failed:
                return Moved::failed(Code::transient, step.system_error);
            case IoStep::State::would_block:
                break;
        }
        switch (wait_socket(socket_, Interest::read, time_left(until), *stop_)) {
            case Ready::yes:
                break;
            case Ready::timeout:
                return Moved::quiet();
            case Ready::stopped:
                return Moved::failed(stop_->reason());
            case Ready::failed:
                return Moved::failed(Code::transient);
        }
    }
}

Result SocketStream::write(std::span<const std::byte> from, Clock::time_point until) {
    if (stop_ == nullptr) return Code::transient;
    while (!from.empty()) {
        if (stop_->requested()) return stop_->reason();
        const IoStep step = socket_.write(from);
        if (step.state == IoStep::State::moved) {
            from = from.subspan(step.bytes);
            continue;
        }
        if (step.state != IoStep::State::would_block) return socket_failure(step.system_error);
        switch (wait_socket(socket_, Interest::write, time_left(until), *stop_)) {
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
