// The lowest stages of a connection whose thread waits: a socket, and any stage of src/net, with waits that
// end on a stop.
#pragma once

#include <utility>

#include "net/stage.h"
#include "transfer/connection/stream.h"

namespace vantlow {

/// A socket as the lowest stage of a connection without a loop. The socket outlives it.
class SocketStage final : public net::Stage {
  public:
    explicit SocketStage(TcpSocket& socket) : socket_(socket) {}

    net::Step read(std::span<std::byte> into, Clock::time_point now) override;
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override;

  private:
    TcpSocket& socket_;
};

/// Waits where a stage says "again": for the socket that stands below it, or for the moment that it names.
/// Stage and socket outlive it.
class StageStream : public ByteStream {
  public:
    StageStream(net::Stage& stage, TcpSocket& socket) : stage_(stage), socket_(socket) {}

    /// Whose stop ends the waits from now on; a connection that is kept for reuse changes hands. Null: waits
    /// fail at once.
    void attach(const StopSource* stop) noexcept { stop_ = stop; }

    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    Result write(std::span<const std::byte> from, Clock::time_point until) override;

  protected:
    /// Repeats a step, with waits between, until it is no longer to be made again.
    template <class MakeStep>
    Moved move(MakeStep make_step, Clock::time_point until) {
        for (;;) {
            // A stop must not have to wait for a server that sends without a pause.
            if (stop_ == nullptr) return Moved::failed(Code::transient);
            if (stop_->requested()) return Moved::failed(stop_->reason());
            const net::Step step = make_step();
            if (step.state != net::Step::State::again) return moved_by(step);
            if (const Ready ready = wait(step, until); ready != Ready::yes) return not_ready(ready);
        }
    }

  private:
    /// Until the step is worth repeating; `timeout` at `until`.
    Ready wait(const net::Step& step, Clock::time_point until);
    static Moved moved_by(const net::Step& step) noexcept;
    [[nodiscard]] Moved not_ready(Ready ready) const;

    net::Stage& stage_;
    TcpSocket& socket_;
    const StopSource* stop_ = nullptr;
};

/// A TCP socket, which it owns. Used by one thread at a time; the stop may come from any.
class SocketStream final : public StageStream {
  public:
    explicit SocketStream(TcpSocket socket)
        : StageStream(stage_, socket_), socket_(std::move(socket)), stage_(socket_) {}

    [[nodiscard]] TcpSocket& socket() noexcept { return socket_; }
    [[nodiscard]] bool can_fill() const noexcept override { return true; }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) override;

  private:
    TcpSocket socket_;
    SocketStage stage_;
};

/// The result for a socket error of the system, with its sentence.
Result socket_failure(int system_error);

}  // namespace vantlow
