// The terminal and the standard streams: writing, reading, sizes, Ctrl-C, and one thread's output kept for
// somebody else.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/stop.h"

namespace vantlow {

enum class Stream { output, error };

/// True when the stream is a terminal.
bool is_terminal(Stream stream) noexcept;
/// Columns of the terminal behind the stream; 80 when it does not say.
int terminal_width(Stream stream) noexcept;
/// Rows of the terminal behind the stream; 24 when it does not say.
int terminal_height(Stream stream) noexcept;
/// Prepares a terminal for UTF-8 and for cursor movement; false when it cannot move its cursor.
bool prepare_terminal(Stream stream) noexcept;
/// Prepares the standard streams; to be called at the start of the process, before it opens anything.
/// Afterwards no file can get the number of a standard stream that the process was started without, and a
/// pipe that nobody reads ends no process.
void prepare_streams() noexcept;
/// Writes UTF-8 text whole, at once and unbuffered. A failure on the error stream is lost, since there is
/// nobody to report it to; take_output_failure() returns one on the output.
void write_stream(Stream stream, std::string_view text) noexcept;
/// Lets both standard streams go on at the end of this file, which is made, for its owner alone, where it is
/// missing. Any thread. Returns 0, or the system's number of the failure; the streams then stay as they were.
int continue_streams_in(const std::u16string& path);
/// Returns the system's number of the first failure on the output since the last call; 0: everything was
/// written.
int take_output_failure() noexcept;

/// Reads the standard input up to its end, at most `at_most` bytes of it.
std::string read_standard_input(std::size_t at_most);

/// Reads the next bytes of the system's standard input as they are, capture or not; waits for the first of
/// them. Returns their number; 0 at the input's end, and where it cannot be read.
std::size_t read_input(std::span<char> into) noexcept;

/// Reads one line from the standard input where that is a terminal, without its line end. None without a
/// terminal, at the input's end, and when a stop is requested.
std::optional<std::string> read_terminal_line(const StopSource& stop);

/// Calls `on_interrupt` (from a thread of its own, one call at a time, count from 1) for each Ctrl-C,
/// SIGTERM, console close or log-off until the object ends. One object at a time.
class InterruptWatch {
  public:
    /// The effect of the terminal's end (SIGHUP): an interrupt like the others, or none, for a program that
    /// is meant to outlive its terminal. A console that ends its programs leaves no choice.
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

/// While it lives, everything that its thread writes to the streams is kept here, and `input` is the standard
/// input. One at a time in a thread.
class ConsoleCapture {
  public:
    explicit ConsoleCapture(std::string input);
    ~ConsoleCapture();
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    [[nodiscard]] const std::string& output() const noexcept { return output_; }
    [[nodiscard]] const std::string& error() const noexcept { return error_; }

    /// The capture of the calling thread; null where it has none. For the console functions only.
    static ConsoleCapture* current() noexcept;
    void write(Stream stream, std::string_view text);
    std::string take_input() { return std::move(input_); }

  private:
    std::string input_;
    std::string output_;
    std::string error_;
};

/// Writes the text whole to the system's stream, capture or not; 0, or the system's number of the failure.
/// For the files of this folder only.
int write_to_system(Stream stream, std::string_view text) noexcept;

}  // namespace vantlow
