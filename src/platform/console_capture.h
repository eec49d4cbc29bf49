// A thread whose output goes to somebody else than its process's streams.
#pragma once

#include <string>
#include <string_view>

#include "platform/console.h"

namespace vantlow {

/// While it lives, what its thread writes to the streams is kept here, and standard input is `input`. One at
/// a time in a thread.
class ConsoleCapture {
  public:
    explicit ConsoleCapture(std::string input);
    ~ConsoleCapture();
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    [[nodiscard]] const std::string& output() const noexcept { return output_; }
    [[nodiscard]] const std::string& error() const noexcept { return error_; }

    /// The calling thread's; null where it has none. For the console functions.
    static ConsoleCapture* current() noexcept;
    void write(Stream stream, std::string_view text);
    std::string take_input() { return std::move(input_); }

  private:
    std::string input_;
    std::string output_;
    std::string error_;
};

}  // namespace vantlow
