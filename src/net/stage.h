// The stages of a connection on the loop: each knows the one below it, none waits.
#pragma once

#include <cstddef>
#include <span>

#include "base/clock.h"
#include "base/result.h"

namespace vantlow::net {

/// The moment at which a step that could not be done is worth repeating.
enum class Wants {
    readable,  ///< the socket below has bytes, or its end
    writable,  ///< the socket below takes bytes again
    time,      ///< the moment in Step::at has come
};

/// The outcome of one read or write. Cheap to pass: it holds no memory.
struct Step {
    enum class State {
        moved,   ///< `bytes` bytes went, which may be fewer than were offered, never none
        again,   ///< nothing yet: repeat it when `wants` holds
        closed,  ///< of reads: the other side will send nothing more
        failed,  ///< `code` and `system_error` say why; the stage is of no more use
    };
    State state = State::failed;
    Wants wants = Wants::readable;
    std::size_t bytes = 0;
    Clock::time_point at{};  ///< of Wants::time
    Code code = Code::transient;
    int system_error = 0;
    const char* why =
        nullptr;  ///< a sentence for the person that is never freed; null: the system's, or the code's

    static Step moved(std::size_t n) { return {State::moved, Wants::readable, n}; }
    static Step again(Wants wants) { return {State::again, wants}; }
    static Step again_at(Clock::time_point at) { return {State::again, Wants::time, 0, at}; }
    static Step closed() { return {State::closed}; }
    static Step failed(int system_error) { return {.state = State::failed, .system_error = system_error}; }
    static Step failed(Code code, const char* why = nullptr) {
        return {.state = State::failed, .code = code, .why = why};
    }
    /// The failure as the rest of the program passes it on; of `failed` only.
    [[nodiscard]] Result result() const;
};

/// One stage of a connection: a socket, pacing, encryption. Reading and writing return at once and may do a
/// part only. A stage may want to be readable for a write and the other way about (a handshake). One thread
/// uses a stage.
class Stage {
  public:
    Stage() = default;
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    virtual ~Stage() = default;

    /// Reads up to `into.size()` bytes (above 0). `now` is the time for stages that pace.
    virtual Step read(std::span<std::byte> into, Clock::time_point now) = 0;
    /// Takes some of the bytes (at least one is offered). After `again` the same bytes are offered anew, or
    /// more.
    virtual Step write(std::span<const std::byte> from, Clock::time_point now) = 0;
};

}  // namespace vantlow::net
