// Where protocol code writes what happens on a connection, line by line.
#pragma once

#include <string_view>

namespace vantlow {

/// The direction mark of a line of a job's log.
enum class Direction : int { note = 0, sent = 1, error = 2, received = 3 };

/// Takes one line (UTF-8, without line end). Implementations may be called from any thread and never throw.
/// Callers mask secrets before they call.
class LogSink {
  public:
    LogSink() = default;
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;
    virtual ~LogSink() = default;
    virtual void line(Direction direction, std::string_view text) = 0;
};

}  // namespace vantlow
