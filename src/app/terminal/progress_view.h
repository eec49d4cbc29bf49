// The progress lines on the terminal: the bytes that redraw them in place, and their way to stderr.
#pragma once

#include <string>
#include <vector>

#include "app/terminal/progress_lines.h"
#include "app/terminal/speed_meter.h"

namespace vantlow {

/// The lowest lines of a terminal, drawn over again and again. The object makes the bytes and remembers which
/// lines they left on the screen; the cursor waits at the beginning of the row below.
class ScreenLines {
  public:
    /// Replaces the lines. None may reach the last column, since some terminals go to the next row then.
    std::string draw(std::vector<std::string> lines, int width);
    /// Takes the lines away.
    std::string clear(int width);

  private:
    [[nodiscard]] std::string to_top(int width) const;

    std::vector<std::string> lines_;  ///< the lines on the screen
};

/// Shows the progress on the terminal behind stderr, and draws nothing where there is none. Not for two
/// threads at a time.
class ProgressView {
  public:
    /// Draws only when `wanted`, and in colour unless the environment has NO_COLOR.
    explicit ProgressView(bool wanted);

    [[nodiscard]] bool is_drawing() const noexcept { return drawing_; }
    void draw(const std::vector<JobLine>& jobs, const Totals& totals);
    /// Takes the lines away until the next draw(). Call it before anything else is written to the terminal.
    void clear();

  private:
    bool drawing_;
    bool colour_;
    ScreenLines screen_;
};

}  // namespace vantlow
