// Both ends of a stream, as tests use them.
#pragma once

#include <algorithm>
#include <memory>
#include <string>

#include "net/network.h"

namespace vantlow::test {

/// Writes a text, then the end if wanted, and reads whatever comes, each as fast as the stream lets it.
class StreamPump {
  public:
    StreamPump(net::Network& network, std::unique_ptr<net::Stream> stream)
        : network_(network), stream_(std::move(stream)) {}

    void send(std::string text, bool and_end = false) {
        unsent_ += text;
        end_ = and_end;
        push();
    }
    /// Reads until the end, or until so many bytes are there.
    void receive(std::size_t at_most = SIZE_MAX) {
        at_most_ = at_most;
        pull();
    }
    /// Sends back what comes, and the end after the end.
    void echo() {
        echoes_ = true;
        pull();
    }

    net::Stream& stream() { return *stream_; }
    [[nodiscard]] const std::string& received() const { return received_; }
    [[nodiscard]] bool ended() const { return ended_; }  ///< the other side sent the end
    /// The system's number, of reading or writing; -1: a failure without one.
    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] std::size_t unsent() const { return unsent_.size() - sent_; }
    [[nodiscard]] int refusals() const { return refusals_; }  ///< how often a write had to wait

  private:
    static int number_of(const net::Step& failed) {
        return failed.system_error != 0 ? failed.system_error : -1;
    }
    void push() {
        while (sent_ < unsent_.size()) {
            const net::Step step =
                stream_->write(std::as_bytes(std::span(unsent_)).subspan(sent_), network_.now());
            if (step.state == net::Step::State::again) {
                ++refusals_;
                stream_->when_writable([this] { push(); });
                return;
            }
            if (step.state != net::Step::State::moved) {
                error_ = number_of(step);
                return;
            }
            sent_ += step.bytes;
        }
        unsent_.clear();
        sent_ = 0;
        if (end_ && stream_->shut_down_sending().ok()) end_ = false;
    }
    void pull() {
        std::byte room[65536];
        while (received_.size() < at_most_ && !ended_ && error_ == 0) {
            const std::size_t wanted = std::min(sizeof room, at_most_ - received_.size());
            const net::Step step = stream_->read(std::span(room).first(wanted), network_.now());
            if (step.state == net::Step::State::again) {
                stream_->when_readable([this] { pull(); });
                return;
            }
            if (step.state == net::Step::State::failed) error_ = number_of(step);
            ended_ = step.state == net::Step::State::closed;
            const std::string text(reinterpret_cast<const char*>(room), step.bytes);
            if (step.state == net::Step::State::moved) received_ += text;
            if (echoes_) send(text, ended_);
        }
    }

    net::Network& network_;
    std::unique_ptr<net::Stream> stream_;
    std::string unsent_;
    std::size_t sent_ = 0;  ///< of it
    std::string received_;
    std::size_t at_most_ = SIZE_MAX;
    bool end_ = false;
    bool echoes_ = false;
    bool ended_ = false;
    int error_ = 0;
    int refusals_ = 0;
};

}  // namespace vantlow::test
