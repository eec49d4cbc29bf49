// The progress lines on the terminal, drawn over again and again.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/terminal/progress_lines.h"
#include "app/terminal/speed_meter.h"

namespace vantlow {

/// The lowest lines of a terminal, drawn over again and again. Makes the bytes and remembers what they left
/// on the screen; the cursor waits at the beginning of the row below.
class ScreenLines {
  public:
    /// Replaces what stands there. No line may reach the last column: some terminals go to the next row then.
    std::string draw(std::vector<std::string> lines, int width);
    /// Puts a text (one or more lines, no line break at the end) above them that stays there.
    std::string print_above(std::string_view text, int width);
    /// Takes them away.
    std::string clear(int width);

  private:
    [[nodiscard]] std::string to_top(int width) const;

    std::vector<std::string> lines_;  ///< that stand on the screen
};

/// Shows the progress on the terminal behind stderr; where there is none, draws nothing. Not for two threads
/// at a time.
class ProgressView {
  public:
    /// Draws only when `wanted`; in colour only when `colour`.
    ProgressView(bool wanted, bool colour);

    [[nodiscard]] bool is_drawing() const noexcept { return drawing_; }
    void draw(const std::vector<JobLine>& jobs, const Totals& totals);
    /// Writes a text (without a line break at its end) to stderr, above the lines where there are some.
    void print_above(std::string_view text);
    /// Takes the lines away, until the next draw(): before anything else is written to the terminal.
    void clear();

  private:
    bool drawing_;
    bool colour_;
    ScreenLines screen_;
};

}  // namespace vantlow
