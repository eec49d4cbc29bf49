// The log of one job.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/mutex.h"

namespace vantlow {

/// One line of a job's log.
class CLogNode {
  public:
    virtual ~CLogNode() = default;

    std::int64_t time = 0;  ///< milliseconds since 1970
    Direction direction = Direction::note;
    std::string text;  ///< UTF-8, control characters replaced, at most max_length bytes
    static constexpr std::size_t max_length = 4096;
};

/// The text in the form that a line holds: no control characters, no bytes that are not UTF-8, at most
/// CLogNode::max_length bytes.
std::string log_text(std::string_view text);

/// Keeps the last lines (1,000) and hands each on to a listener. Any thread may write; the listener is called
/// one line at a time and must not write to the log itself.
class CJobLog : public LogSink {
  public:
    using Listener = std::function<void(const CLogNode&)>;
    explicit CJobLog(Listener listener = {}) : listener_(std::move(listener)) {}
    void line(Direction direction, std::string_view text) override;
    [[nodiscard]] std::vector<CLogNode> lines() const;

  private:
    static constexpr std::size_t kept = 1000;
    mutable Mutex mutex_;
    Mutex listener_mutex_;  ///< lets one line after the other in; guards no datum
    std::deque<CLogNode> lines_ VANTLOW_GUARDED_BY(mutex_);
    Listener listener_;  ///< called under listener_mutex_
};

}  // namespace vantlow
