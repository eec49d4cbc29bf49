// A job's log: the lines that were read are written and read the same, and harmless to a terminal.
#include <algorithm>

#include "base/text.h"
#include "fuzz.h"
#include "store/job_log_file.h"

void vantlow::fuzz::run(std::string_view input) {
    const auto lines = read_log_lines(input);
    CHECK(lines.size() <= input.size() / 4 + 1);
    std::string written;
    for (const CLogNode& line : lines) {
        CHECK(line.time >= 0);
        CHECK(static_cast<unsigned>(line.direction) <= 3);
        CHECK(line.text.size() <= CLogNode::max_length && is_utf8(line.text));
        CHECK(std::none_of(line.text.begin(), line.text.end(),
                           [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }));
        written += write_log_line(line);
    }
    const auto again = read_log_lines(written);
    CHECK(again.size() == lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        CHECK(again[i].time == lines[i].time && again[i].direction == lines[i].direction);
        CHECK(again[i].text == lines[i].text);
    }
}
