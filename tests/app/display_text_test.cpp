#include "app/terminal/display_text.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

TEST(DisplayText, NothingInANameReachesTheTerminalAsACommand) {
    const std::string_view cases[][2] = {
        {"plain näme 日本.txt", "plain näme 日本.txt"},
        {"\x1b[2J\x07\r\n\t\x7F", "?[2J?????"},
        {"a\xC2\x9B"
         "31mb\xC2\x85",
         "a?31mb?"},                                    // CSI and NEL of ISO 6429 as one character
        {"x\u202Egpj.exe\u2066\u200F", "x?gpj.exe??"},  // turned round it would read "exe.jpg"
        {"a\u2028b\u2029", "a?b?"},
        {"\xFF\xC0\xAF\xED\xA0\x80\xF0\x9F", "????????"},  // not UTF-8, overlong, surrogate, cut off
        {"\u0301e\u0301", "e\u0301"},                      // nothing to stand on
        {"👨\u200D👩\u200D👧👍🏽❤\uFE0F", "👨👩👧👍❤"},
        {"क\u094D\u200Dष", "क\u094D\u200Dष"},  // here the joiner is part of the writing
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(printable(text), expected);
    std::string marks = "e";
    for (int i = 0; i < 1000; ++i) marks += "\u0301";
    EXPECT_LE(printable(marks).size(), 20U);
}

TEST(DisplayText, MeasuresColumns) {
    const struct {
        std::string_view text;
        int columns;
    } cases[] = {
        {"", 0},     {"abc", 3},      {"é", 1},      {"e\u0301", 1}, {"日本", 4},   {"ｱｲ", 2},
        {"ＡＢ", 4}, {"한글", 4},     {"한", 2},     {"😀🚀", 4},      {"€…█", 3},    {"שָׁלוֹם", 4},
        {"ไม้", 2},   {"a\u200Bb", 2}, {"\u3000", 2}, {"𠀀", 2},      {"\u00AD", 1}, {"ⓐ①", 2},
    };
    for (const auto& entry : cases) EXPECT_EQ(display_width(entry.text), entry.columns) << entry.text;
}

TEST(DisplayText, ShortensInTheMiddle) {
    const struct {
        std::string_view text;
        int columns;
        std::string_view expected;
    } cases[] = {
        {"abcdef.iso", 10, "abcdef.iso"},
        {"abcdef.iso", 9, "abcd….iso"},
        {"abcdef.iso", 4, "ab…o"},
        {"abcdef.iso", 2, "a…"},
        {"abcdef.iso", 1, "…"},
        {"abcdef.iso", 0, ""},
        {"abcdef.iso", -5, ""},
        {"日本語日本語.iso", 11, "日本語….iso"},
        {"日本語日本語", 8, "日本…語"},
        {"日本語日本語", 7, "日本…語"},
        {"日本語日本語", 6, "日…語"},
        {"日本語", 2, "…"},
        // A mark stays with its character on both sides of the cut.
        {"e\u0301e\u0301e\u0301e\u0301e\u0301", 3, "e\u0301…e\u0301"},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(shorten(entry.text, entry.columns), entry.expected) << entry.columns;
    }
}

}  // namespace
}  // namespace vantlow
