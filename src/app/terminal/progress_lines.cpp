#include "app/terminal/progress_lines.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "base/text.h"

namespace vantlow {
namespace {

// Colours of states (ECMA-48, SGR).
enum class Paint { none = 0, red = 31, green = 32, yellow = 33, cyan = 36 };

// Columns of the fields, without the gap in front of them.
constexpr int gap = 2;
constexpr int percent_columns = 4;  // "100%"
constexpr int size_columns = 8;     // "1023 KiB"
constexpr int speed_columns = 10;   // "1023 KiB/s"
constexpr int time_columns = 8;     // "99:59:59"
constexpr int least_name = 10;
constexpr int least_cells = 10;
constexpr int brackets = 2;
constexpr int most_name = 48;
constexpr int most_cells = 40;

// The fields of a line, and the widths of those that vary. They depend on the terminal's width only, so that
// nothing jumps about while jobs come and go.
struct Layout {
    int width = 0;
    int name = 0;
    bool percent = false;
    bool size = false;
    bool speed = false;
    bool time_left = false;
    int cells = 0;  // of the picture; 0: no picture
};

Layout layout_for(int width) noexcept {
    Layout layout;
    layout.width = width;
    int rest = width - least_name;
    const auto take = [&rest](int columns) {
        const bool fits = rest >= gap + columns;
        if (fits) rest -= gap + columns;
        return fits;
    };
    layout.percent = take(percent_columns);
    layout.speed = take(speed_columns);
    layout.time_left = take(time_columns);
    layout.size = take(size_columns);
    layout.name = std::min(width, least_name + std::max(rest, 0));
    constexpr int picture = gap + brackets + least_cells;
    constexpr int name_beside_picture = 6;  // columns that the name gets before there is a picture
    if (rest >= picture + name_beside_picture) {
        const int room = rest - picture;
        layout.name = std::min(most_name, least_name + room * 2 / 3);
        layout.cells = std::min(most_cells, least_cells + room - room * 2 / 3);
    }
    layout.name = std::min(layout.name, most_name);
    return layout;
}

// A line in the making.
class Line {
  public:
    explicit Line(bool colour) : colour_(colour) {}

    void add(std::string_view text, Paint paint = Paint::none) {
        const bool painted = colour_ && paint != Paint::none && !text.empty();
        if (painted) bytes_ += print("\x1b[%dm", static_cast<int>(paint));
        bytes_ += text;
        if (painted) bytes_ += "\x1b[0m";
    }
    void add_blanks(int count) { bytes_.append(static_cast<std::size_t>(std::max(count, 0)), ' '); }
    void add_left(const std::string& text, int columns) {
        add(text);
        add_blanks(columns - display_width(text));
    }
    void add_field(const std::string& text, int columns, Paint paint = Paint::none) {
        add_blanks(gap + columns - display_width(text));
        add(text, paint);
    }
    [[nodiscard]] std::string take() { return std::move(bytes_); }

  private:
    bool colour_;
    std::string bytes_;
};

std::string percent_text(const JobProgress& progress) {
    if (progress.size < 0) return "--";
    if (progress.done >= progress.size) return "100%";
    const double part = static_cast<double>(progress.done) / static_cast<double>(progress.size);
    return print("%d%%", std::clamp(static_cast<int>(part * 100), 0, 99));
}

std::string time_left_text(const JobLine& job) {
    const std::int64_t left = job.progress.size - job.progress.done;
    if (job.progress.size < 0 || left < 0 || !(job.speed >= 0.5)) return "--";
    constexpr double beyond_all = 1e12;
    const double seconds = std::ceil(static_cast<double>(left) / job.speed);
    return human_time(static_cast<std::int64_t>(std::min(seconds, beyond_all)));
}

Paint state_of(const JobProgress& progress) noexcept {
    if (progress.size >= 0 && progress.done >= progress.size) return Paint::green;
    return progress.connections == 0 || !progress.notice.empty() ? Paint::yellow : Paint::none;
}

// The state of one cell of the picture, which stands for the bytes from `begin` to `end`.
char cell_of(const JobProgress& progress, std::int64_t begin, std::int64_t end) noexcept {
    char cell = '#';
    for (const JobProgress::Missing& range : progress.missing) {
        const bool empty = range.start >= range.end;
        if (empty || range.start >= end || range.end <= begin) continue;
        if (range.active && range.start >= begin) return '>';
        cell = '.';
    }
    return cell;
}

std::string picture_of(const JobProgress& progress, int cells) {
    if (progress.size < 0) return std::string(static_cast<std::size_t>(cells), ' ');
    // Returns the first byte of a cell, without ever multiplying the size itself.
    const auto border = [size = progress.size, cells](std::int64_t cell) {
        return size / cells * cell + size % cells * cell / cells;
    };
    std::string picture;
    for (std::int64_t cell = 0; cell < cells; ++cell) {
        const std::int64_t begin = border(cell);
        picture += cell_of(progress, begin, std::max(border(cell + 1), begin + 1));
    }
    return picture;
}

void add_picture(Line& line, std::string_view picture) {
    line.add_blanks(gap);
    line.add("[");
    while (!picture.empty()) {
        const char cell = picture.front();
        const std::size_t count = std::min(picture.find_first_not_of(cell), picture.size());
        line.add(picture.substr(0, count), cell == '#'   ? Paint::green
                                           : cell == '>' ? Paint::cyan
                                                         : Paint::none);
        picture.remove_prefix(count);
    }
    line.add("]");
}

std::string render_job(const JobLine& job, const Layout& layout, bool colour) {
    Line line(colour);
    const JobProgress& progress = job.progress;
    line.add_left(shorten(job.name, layout.name), layout.name);
    if (layout.percent) line.add_field(percent_text(progress), percent_columns, state_of(progress));
    if (!job.waits.empty() && layout.speed) {
        line.add_blanks(gap);
        const int rest = layout.width - layout.name - gap - percent_columns - gap;
        line.add_left(shorten(job.waits, rest), 0);
        return line.take();
    }
    if (layout.size) {
        line.add_field(human_size(progress.size >= 0 ? progress.size : progress.done), size_columns);
    }
    if (layout.speed) line.add_field(human_speed(job.speed), speed_columns);
    if (layout.time_left) line.add_field(time_left_text(job), time_columns);
    if (layout.cells > 0) add_picture(line, picture_of(progress, layout.cells));
    return line.take();
}

struct Part {
    std::string text;
    Paint paint = Paint::none;
};
using Parts = std::vector<Part>;

int width_of(const Parts& parts) noexcept {
    std::size_t columns = 0;
    for (const Part& part : parts) columns += part.text.size();  // ASCII
    return static_cast<int>(columns);
}

// Writes the counts of jobs in the longest words that fit; none when there is no room for even the shortest.
std::optional<Parts> counts_within(const Totals& totals, int columns) {
    const std::size_t all = totals.running + totals.waiting + totals.done + totals.failed;
    const auto count = [](std::size_t value, std::string_view what) {
        return std::to_string(value).append(what);
    };
    Parts states = {{count(totals.running, " running")}};
    const auto add = [&count](Parts& parts, std::size_t value, std::string_view what, Paint paint) {
        if (value == 0) return;
        parts.push_back({", "});
        parts.push_back({count(value, what), paint});
    };
    add(states, totals.waiting, " waiting", Paint::none);
    add(states, totals.done, " done", Paint::green);
    const Parts of_all = {{count(totals.done, " of ") + count(all, " done")}};
    const Parts shortest = {{count(totals.done, "/") + count(all, "")}};
    std::vector<Parts> choices = {states, of_all, shortest};
    for (Parts& choice : choices) add(choice, totals.failed, " failed", Paint::red);
    choices.push_back(shortest);
    const auto fits = [columns](const Parts& parts) { return width_of(parts) <= columns; };
    const auto found = std::find_if(choices.begin(), choices.end(), fits);
    return found == choices.end() ? std::nullopt : std::optional(*found);
}

std::string render_totals(const Totals& totals, const Layout& layout, int width, bool colour) {
    Line line(colour);
    const bool aligned = layout.percent && layout.speed;
    const int left = aligned ? layout.name + gap + percent_columns : width - gap - speed_columns;
    auto counts = counts_within(totals, left);
    const bool with_speed = counts.has_value();
    if (!counts) counts = counts_within(totals, width);
    if (!counts) return shorten(std::to_string(totals.done), width);
    for (const Part& part : *counts) line.add(part.text, part.paint);
    if (!with_speed) return line.take();
    line.add_blanks(left - width_of(*counts));
    if (aligned && layout.size) line.add_field(human_size(totals.received), size_columns);
    line.add_field(human_speed(totals.speed), speed_columns);
    return line.take();
}

}  // namespace

std::string wait_text(const JobProgress& progress, Clock::time_point now) {
    if (progress.waiting_for.empty()) return {};
    const bool tries = progress.attempts > 0 || progress.next_try;
    if (!tries) return progress.waiting_for;
    std::string text = "retry " + std::to_string(std::max(progress.attempts, 1));
    if (progress.next_try && *progress.next_try > now) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(*progress.next_try - now);
        text += " in " + human_time(left.count());
    }
    return text + ": " + progress.waiting_for;
}

std::vector<std::string> render_progress(const std::vector<JobLine>& jobs, const Totals& totals, int width,
                                         bool colour, int height) {
    const Layout layout = layout_for(std::max(width, 0));
    std::vector<std::string> lines;
    // The room is that beside the line for the whole. Where not all jobs have a line, one line counts the
    // others.
    const auto room = static_cast<std::size_t>(std::max(height - 1, 0));
    std::size_t shown = std::min(jobs.size(), most_job_lines);
    if (jobs.size() > shown ? shown >= room : shown > room) shown = room > 0 ? room - 1 : 0;
    for (std::size_t i = 0; i < shown; ++i) lines.push_back(render_job(jobs[i], layout, colour));
    if (jobs.size() > shown && room > 0) {
        lines.push_back(shorten("and " + std::to_string(jobs.size() - shown) + " more", width));
    }
    lines.push_back(render_totals(totals, layout, width, colour));
    return lines;
}

}  // namespace vantlow
