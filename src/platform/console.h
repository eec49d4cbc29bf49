// The terminal: what stdout and stderr are, how wide, and Ctrl-C.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/stop.h"

namespace vantlow {

enum class Stream { output, error };

/// True when the stream is a terminal.
bool is_terminal(Stream stream) noexcept;
/// Columns of the terminal behind the stream; 80 when it does not tell.
int terminal_width(Stream stream) noexcept;
/// Rows of it; 24 when it does not tell.
int terminal_height(Stream stream) noexcept;
/// Prepares a terminal for UTF-8 and for cursor movement; false when it cannot move its cursor.
bool prepare_terminal(Stream stream) noexcept;
/// To be called at the start of the process, before it opens anything: no file gets the number of a standard
/// stream that the process was started without, and a pipe that nobody reads ends no process.
void prepare_streams() noexcept;
/// Writes UTF-8 text whole, at once, unbuffered. Of a failure on the error stream there is nobody to tell;
/// that on the output can be asked for.
void write_stream(Stream stream, std::string_view text) noexcept;
/// The system's number of the first failure on the output since it was asked for; 0: everything was written.
int take_output_failure() noexcept;

/// Standard input up to its end, at most `at_most` bytes of it.
std::string read_standard_input(std::size_t at_most);

/// Reads one line from the standard input where that is a terminal, without its line end. None without a
/// terminal, at the input's end, and when a stop is requested.
std::optional<std::string> read_terminal_line(const StopSource& stop);

/// Calls `on_interrupt` (from a thread of its own, one call at a time, count from 1) for each Ctrl-C,
/// SIGTERM, console close or log-off until the object ends. One object at a time.
class InterruptWatch {
  public:
    /// What the end of the terminal is (SIGHUP): an interrupt like the others, or nothing to a program that
    /// is meant to outlive it. Where a console ends its programs there is no choice.
    enum class HangUp { interrupts, is_ignored };
    using Handler = void (*)(void* context, int count);
    InterruptWatch(Handler handler, void* context, HangUp hang_up = HangUp::interrupts);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

  private:
    struct State;
    State* state_;
};

}  // namespace vantlow
