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
    struct Case {
        std::u16string name;
        std::u16string safe;
    };
    const Case cases[] = {
        {u"../../etc/passwd", u"passwd"},
        {u"..\\..\\boot.ini", u"boot.ini"},
        {u"..", u"index"},
        {u"a/", u"index"},
        {u" . ", u"index"},
        {u"C:evil.exe", u"C_evil.exe"},
        {u"a.txt:stream", u"a.txt_stream"},
        {u"name. . ", u"name"},
        {u"nul.tar.gz", u"_nul.tar.gz"},
        {u"COM1", u"_COM1"},
        {u"lpt\u00B9.txt", u"_lpt\u00B9.txt"},
        {u"con .txt", u"_con .txt"},
        {u"console", u"console"},
        {u"a\u202Egpj.exe", u"a_gpj.exe"},
        {u"a\r\nb\x7F", u"a__b_"},
        {u"README", u"README"},
        {u".bashrc", u"_.bashrc"},
        {u" .. x", u"_.. x"},
    };
    for (const Case& c : cases) EXPECT_EQ(safe_file_name(c.name), c.safe);
    const std::u16string long_name = safe_file_name(std::u16string(300, u'\u4F60') + u".tar.gz");
    EXPECT_LE(to_utf8(long_name).size(), 200U);
    EXPECT_TRUE(long_name.ends_with(u".gz"));
    const std::u16string device = safe_file_name(u"con." + std::u16string(196, u'a'));
    EXPECT_TRUE(device.starts_with(u"_con.") && device.size() <= 200) << to_utf8(device);
    const std::u16string hidden = safe_file_name(u"." + std::u16string(300, u'a'));
    EXPECT_TRUE(hidden.starts_with(u"_.a") && hidden.size() <= 200) << to_utf8(hidden);
    std::u16string faces;
    while (faces.size() < 300) faces += u"\U0001F600";
    const std::string cut = to_utf8(safe_file_name(faces));
    EXPECT_EQ(cut.find("\xEF\xBF\xBD"), std::string::npos) << "half a character";
}

}  // namespace
}  // namespace vantlow
