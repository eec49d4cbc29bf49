#include "app/terminal/progress_view.h"

#include <algorithm>
#include <utility>

#include "app/terminal/display_text.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// Control sequences of ECMA-48.
constexpr std::string_view clear_row_end = "\x1b[K";
constexpr std::string_view clear_below = "\x1b[J";
// The terminal may be in a mode in which a line feed alone keeps its column.
constexpr std::string_view next_row = "\r\n";

int columns_without_colours(std::string_view line) {
    int columns = 0;
    for (;;) {
        const auto escape = line.find('\x1b');
        columns += display_width(line.substr(0, escape));
        const auto end = escape == std::string_view::npos ? escape : line.find('m', escape);
        if (end == std::string_view::npos) return columns;
        line.remove_prefix(end + 1);
    }
}

}  // namespace

std::string ScreenLines::to_top(int width) const {
    // A terminal that was made narrower has broken the lines that no longer fit into several rows.
    int rows = 0;
    for (const std::string& line : lines_) {
        rows += std::max(1, (columns_without_colours(line) + width - 1) / width);
    }
    return rows == 0 ? "\r" : print("\r\x1b[%dA", rows);
}

std::string ScreenLines::draw(std::vector<std::string> lines, int width) {
    std::string bytes = to_top(width);
    lines_ = std::move(lines);
    // Each row is overwritten before its rest is cleared, so that unchanged text does not flicker.
    for (const std::string& line : lines_) bytes.append(line).append(clear_row_end).append(next_row);
    return bytes.append(clear_below);
}

std::string ScreenLines::clear(int width) {
    if (lines_.empty()) return {};
    std::string bytes = to_top(width).append(clear_below);
    lines_.clear();
    return bytes;
}

ProgressView::ProgressView(bool wanted)
    : drawing_(wanted && is_terminal(Stream::error) && prepare_terminal(Stream::error)),
      colour_(!environment("NO_COLOR").has_value()) {}

void ProgressView::draw(const std::vector<JobLine>& jobs, const Totals& totals) {
    if (!drawing_) return;
    const int width = std::max(terminal_width(Stream::error), 2);
    // The last row of the terminal is left to the cursor.
    const int height = std::max(terminal_height(Stream::error) - 1, 1);
    write_stream(Stream::error,
                 screen_.draw(render_progress(jobs, totals, width - 1, colour_, height), width));
}

void ProgressView::clear() {
    if (!drawing_) return;
    const std::string bytes = screen_.clear(std::max(terminal_width(Stream::error), 1));
    if (!bytes.empty()) write_stream(Stream::error, bytes);
}

}  // namespace vantlow
