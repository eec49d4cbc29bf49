// A log that tests read.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"

namespace vantlow::test {

/// Keeps every line. Any thread may write and ask.
class RecordingLog : public LogSink {
  public:
    struct Line {
        Direction direction = Direction::note;
        std::string text;
    };

    void line(Direction direction, std::string_view text) override {
        const std::lock_guard guard(mutex_);
        lines_.push_back({direction, std::string(text)});
        changed_.notify_all();
    }

    void clear() {
        const std::lock_guard guard(mutex_);
        lines_.clear();
    }

    [[nodiscard]] std::vector<Line> lines() const {
        const std::lock_guard guard(mutex_);
        return lines_;
    }
    /// The texts of one direction, in order.
    [[nodiscard]] std::vector<std::string> texts(Direction direction) const {
        std::vector<std::string> found;
        for (Line& line : lines()) {
            if (line.direction == direction) found.push_back(std::move(line.text));
        }
        return found;
    }
    /// How many lines hold the text.
    [[nodiscard]] std::size_t count(std::string_view text) const {
        const std::lock_guard guard(mutex_);
        return count_locked(text);
    }
    [[nodiscard]] bool has(std::string_view text) const { return count(text) > 0; }

    /// True as soon as `times` lines hold the text; false when the time is over before.
    bool wait_for(std::string_view text, std::size_t times = 1,
                  std::chrono::milliseconds at_most = std::chrono::seconds(10)) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, at_most, [&] { return count_locked(text) >= times; });
    }
    /// Everything, one line a line, to be shown when a test fails.
    [[nodiscard]] std::string all() const {
        std::string text;
        for (const Line& line : lines())
            text += std::to_string(static_cast<int>(line.direction)) + " " + line.text + "\n";
        return text;
    }

  private:
    std::size_t count_locked(std::string_view text) const {
        const auto holds = [&](const Line& line) { return line.text.find(text) != std::string::npos; };
        return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), holds));
    }

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<Line> lines_;  ///< guarded by mutex_
};

}  // namespace vantlow::test
