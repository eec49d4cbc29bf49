// Text from outside, in the form for a terminal: harmless, and as wide as it is said to be.
#include "app/terminal/display_text.h"

#include "app/terminal/progress_lines.h"
#include "base/text.h"
#include "fuzz.h"

namespace vantlow::fuzz {
namespace {

void check_harmless(std::string_view text) {
    CHECK(is_utf8(text));
    for (const char16_t c : to_utf16(text)) {
        CHECK(c >= 0x20 && !(c >= 0x7F && c < 0xA0));
        CHECK(c != 0x2028 && c != 0x2029 && !(c >= 0x202A && c <= 0x202E) && !(c >= 0x2066 && c <= 0x2069));
    }
}

}  // namespace

void run(std::string_view input) {
    const int columns = take_byte(input);
    const std::string shown = printable(input);
    check_harmless(shown);
    CHECK(printable(shown) == shown);
    const std::string shorter = shorten(input, columns);
    check_harmless(shorter);
    CHECK(display_width(shorter) <= columns);
    CHECK(display_width(shown) > columns || shorter == shown);
    JobLine job;
    job.name = input;
    for (const std::string& line : render_progress({job}, {}, columns, false)) {
        check_harmless(line);
        CHECK(display_width(line) <= columns);
    }
}

}  // namespace vantlow::fuzz
