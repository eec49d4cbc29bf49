// Text: encodings, numbers, file names that are safe, paths of addresses.
#include "base/text.h"

#include <gtest/gtest.h>

#include <random>

#include "base/safe_name.h"

namespace vantlow {
namespace {

TEST(Text, any_bytes_survive_the_way_through_utf16) {
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes;
        // Mostly bytes from which characters are made, so that half-right sequences come up.
        while (bytes.size() < 12)
            bytes.push_back(static_cast<char>(random() % 4 == 0 ? random() % 256 : 0x80 + random() % 0x78));
        EXPECT_EQ(to_utf8(to_utf16(bytes)), bytes);
    }
    EXPECT_EQ(to_utf16("a\xFFz"), u"a\xDCFFz");
    EXPECT_EQ(to_utf16("\xF0\x9F\x98\x80\xE4\xBD\xA0\xC3\xA4"), u"\U0001F600\u4F60\u00E4");
    EXPECT_EQ(to_utf8(u"\xD800|\xDC00|\xDFFF"), "\xEF\xBF\xBD|\xEF\xBF\xBD|\xEF\xBF\xBD")
        << "halves of nothing";
}

TEST(Text, only_well_formed_utf8_is_utf8) {
    for (const char* good : {"", "abc", "\xC2\x80", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                             "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(is_utf8(good)) << testing::PrintToString(good);
    }
    // Continuation alone, overlong forms (a separator among them), surrogates, beyond the last point, cut
    // short.
    for (const char* bad :
         {"\x80", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xE0\x80\xAF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE4\xBD", "\xF0\x9F\x98", "\xE4\xBDz"}) {
        EXPECT_FALSE(is_utf8(bad)) << testing::PrintToString(bad);
    }
}

TEST(Text, percent_coding_decodes_what_is_an_escape_and_encodes_what_an_address_may_not_hold) {
    EXPECT_EQ(percent_decode("%41%7e%2F%e4%00x"), std::string("A~/\xE4\0x", 6));
    EXPECT_EQ(percent_decode("%%41 % %4 %4g %zz 100%"), "%A % %4 %4g %zz 100%");
    EXPECT_EQ(percent_encode_unsafe("/a%20b?c=[d]&e#f%"), "/a%20b?c=[d]&e#f%");
    EXPECT_EQ(percent_encode_unsafe(" \r\n\x7F\xE4\"<>\\^`{|}"),
              "%20%0D%0A%7F%E4%22%3C%3E%5C%5E%60%7B%7C%7D");
    EXPECT_EQ(percent_encode_unsafe(std::string("\0", 1)), "%00");
}

TEST(Text, numbers_are_digits_and_nothing_else) {
    EXPECT_EQ(parse_decimal("0009223372036854775807"), INT64_MAX);
    EXPECT_EQ(parse_hexadecimal("fFf"), 0xFFF);
    for (const char* bad : {"", "-1", "+1", " 1", "1 ", "0x1", "1.0", "9223372036854775808", "a"}) {
        EXPECT_EQ(parse_decimal(bad), std::nullopt) << bad;
    }
    for (const char* bad : {"", "-1", "0x1", "8000000000000000", "g", "1 "})
        EXPECT_EQ(parse_hexadecimal(bad), std::nullopt) << bad;
}

TEST(Text, pieces_and_letter_case) {
    EXPECT_EQ(split(",a,,b", ','), (std::vector<std::string_view>{"", "a", "", "b"}));
    EXPECT_EQ(split("", ','), std::vector<std::string_view>{""});
    EXPECT_EQ(trim(" \ta b\t "), "a b");
    EXPECT_EQ(trim(" \t "), "");
    EXPECT_TRUE(istarts_with("HTTP://x", "http://"));
    EXPECT_FALSE(istarts_with("htt", "http"));
    // Neither the letters of other scripts nor the neighbours of A-Z change.
    EXPECT_FALSE(iequals(u"\u00C4", u"\u00E4"));
    EXPECT_FALSE(iequals("[@", "{`"));
    EXPECT_EQ(print("%s %d %%", std::string(300, 'x').c_str(), 7), std::string(300, 'x') + " 7 %");
}

TEST(SafeFileName, is_one_name_in_the_folder_on_both_systems) {
    const struct {
        std::u16string name;
        const char* safe;
    } cases[] = {
        {u"file.zip", "file.zip"},
        {u"README", "README"},
        {u"no extension", "no extension"},
        {u".hidden", "_.hidden"},
        {u" .. x", "_.. x"},
        {u"\u65e5\u672c \u00fc.txt", "\xE6\x97\xA5\xE6\x9C\xAC \xC3\xBC.txt"},
        // No way out of the folder.
        {u"../../etc/passwd", "passwd"},
        {u"..\\..\\windows\\system32\\x.dll", "x.dll"},
        {u"/etc/passwd", "passwd"},
        {u"\\\\server\\share\\x", "x"},
        {u"C:\\x.txt", "x.txt"},
        {u"C:x.txt", "C_x.txt"},
        {u"x.txt:stream", "x.txt_stream"},
        {u"x.txt::$DATA", "x.txt__$DATA"},
        {u"..", "index"},
        {u".", "index"},
        {u"...", "index"},
        {u". .", "index"},
        {u"", "index"},
        {u"dir/", "index"},
        {u" ", "index"},
        // Windows refuses or cuts these off.
        {u"a<b>c\"d|e?f*g.txt", "a_b_c_d_e_f_g.txt"},
        {u"name.txt. . ", "name.txt"},
        {u"  name.txt", "name.txt"},
        {u"a\r\nb\x7F", "a__b_"},
        {u"a\tb\nc\u007f\u0085.txt", "a_b_c__.txt"},
        {std::u16string(u"a\0b.exe", 7), "a_b.exe"},
        {u"photo\u202Egpj.exe", "photo_gpj.exe"},
        {u"CON", "_CON"},
        {u"con.txt", "_con.txt"},
        {u"Nul.tar.gz", "_Nul.tar.gz"},
        {u"AUX .txt", "_AUX .txt"},
        {u"PRN.", "_PRN"},
        {u"com1", "_com1"},
        {u"LPT9.x", "_LPT9.x"},
        {u"COM\u00b9.txt", "_COM\xC2\xB9.txt"},
        {u"conin$", "_conin$"},
        {u"common.txt", "common.txt"},
        {u"com10.txt", "com10.txt"},
        {u"console", "console"},
    };
    for (const auto& c : cases) EXPECT_EQ(to_utf8(safe_file_name(c.name)), c.safe) << to_utf8(c.name);
    EXPECT_EQ(to_utf8(safe_file_name(u"/", u"example.org")), "example.org");
}

TEST(SafeFileName, is_short_enough_for_every_file_system_and_keeps_its_extension) {
    for (const std::u16string& piece : {std::u16string(u"x"), std::u16string(u"\u65e5"),
                                        std::u16string(u"\U0001F4C1"), std::u16string(u". ")}) {
        std::u16string stem;
        while (stem.size() < 1000) stem += piece;
        const std::u16string name = safe_file_name(u"a" + stem + u".zip");
        EXPECT_LE(to_utf8(name).size(), 200U);
        EXPECT_TRUE(name.ends_with(u".zip")) << to_utf8(name);
        EXPECT_TRUE(is_utf8(to_utf8(name))) << "half a character is left";
        EXPECT_GT(to_utf8(name).size(), piece == u". " ? 5U : 190U);
        // An extension without end is none.
        const std::u16string odd = safe_file_name(u"a." + stem);
        EXPECT_LE(to_utf8(odd).size(), 200U);
        EXPECT_TRUE(odd.starts_with(u"a")) << to_utf8(odd);
        EXPECT_FALSE(odd.ends_with(u".") || odd.ends_with(u" ")) << to_utf8(odd);
    }
    const std::u16string exact(200, u'x');
    EXPECT_EQ(safe_file_name(exact), exact);
    // A mark in front leaves room for itself.
    for (const std::u16string_view front : {u"con.", u"."}) {
        const std::u16string marked = safe_file_name(std::u16string(front) + std::u16string(196, u'a'));
        EXPECT_TRUE(marked.starts_with(u"_" + std::u16string(front)) && marked.size() <= 200);
    }
}

TEST(RemoveDotSegments, does_as_the_standard_says) {
    const struct {
        const char* path;
        const char* without;
    } cases[] = {
        {"/a/b/c/./../../g", "/a/g"},
        {"mid/content=5/../6", "mid/6"},
        {"/", "/"},
        {"", ""},
        {"/.", "/"},
        {"/..", "/"},
        {"/../../x", "/x"},
        {"/a/..", "/"},
        {"/a/b/.", "/a/b/"},
        {"/a//../b", "/a/b"},
        {"//etc/f", "//etc/f"},
        {"/a/%2E%2e/.%2e/b", "/b"},
        {"/.../.a/..b/%2Ec", "/.../.a/..b/%2Ec"},
        {"/a/../b?c/../d", "/b?c/../d"},
        {"/a/..?x", "/?x"},
        {"../x", "/x"},
        {"..", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(remove_dot_segments(c.path), c.without) << c.path;
}

}  // namespace
}  // namespace vantlow
