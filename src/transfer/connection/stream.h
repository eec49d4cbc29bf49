// The stages of a connection, as each is to the one above it: bytes that are waited for.
#pragma once

#include <cstddef>
#include <span>

#include "base/result.h"
#include "platform/conduit.h"
#include "platform/socket.h"

namespace vantlow {

/// The outcome of one read.
struct Moved {
    enum class State {
        data,    ///< `bytes` bytes, at least one
        quiet,   ///< nothing until the given moment: not a failure
        closed,  ///< the other side will send nothing more
        failed,  ///< `code` says why; the stage is of no more use
    };
    State state = State::failed;
    std::size_t bytes = 0;
    Code code = Code::ok;
    int system_error = 0;
    const char* why = nullptr;  ///< a sentence for the person that is never freed; null: the code's own

    static Moved data(std::size_t n) { return {State::data, n}; }
    static Moved quiet() { return {State::quiet}; }
    static Moved closed() { return {State::closed}; }
    static Moved failed(Code code, int error = 0) { return {State::failed, 0, code, error}; }
    static Moved failed(Code code, const char* why) { return {State::failed, 0, code, 0, why}; }
};

/// Gives bytes that are waited for: a connection, or whatever is made of one's bytes. Used by one thread at a
/// time.
class ByteSource {
  public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    /// Waits until `until` at the longest, or until the stop that the source knows of is requested.
    virtual Moved read(std::span<std::byte> into, Clock::time_point until) = 0;
    /// Whether fill() can be called now: this source and all below it hand bytes on as they are.
    [[nodiscard]] virtual bool can_fill() const noexcept { return false; }
    /// Reads up to `most` bytes into an empty conduit, which does not show them to anybody; else like read().
    virtual Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until);
};

/// One stage of a connection.
class ByteStream : public ByteSource {
  public:
    /// Sends all of it before `until`, or fails.
    virtual Result write(std::span<const std::byte> from, Clock::time_point until) = 0;
};

/// A fixed moment that many milliseconds from now.
Clock::time_point from_now(std::chrono::milliseconds time);
/// The time left until then, rounded up, never negative.
std::chrono::milliseconds time_left(Clock::time_point until);

}  // namespace vantlow
