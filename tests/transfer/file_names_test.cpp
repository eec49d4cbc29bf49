
#include <gtest/gtest.h>

#include <set>

#include "base/safe_name.h"
#include "base/text.h"

namespace vantlow {
namespace {

std::string free_among(const std::u16string& name, const std::set<std::u16string>& taken) {
    return to_utf8(
        free_name(name, [&](const std::u16string& candidate) { return taken.contains(candidate); }));
}

TEST(FreeName, CountsOnFromTheNumberThatIsThere) {
    struct Case {
        std::u16string name;
        std::set<std::u16string> taken;
        const char* free;
    };
    const Case cases[] = {
        {u"a.zip", {u"a.zip"}, "a(1).zip"},
        {u"a.zip", {u"a.zip", u"a(1).zip", u"a(3).zip"}, "a(2).zip"},
        {u"a(7).zip", {u"a(7).zip"}, "a(8).zip"},
        {u"a(7).zip", {u"a(7).zip", u"a(8).zip"}, "a(9).zip"},
        {u"a(0).zip", {u"a(0).zip"}, "a(1).zip"},
        {u"a", {u"a"}, "a(1)"},
        {u"a(9)", {u"a(9)"}, "a(10)"},
        {u".profile", {u".profile"}, ".profile(1)"},
        {u"a.tar.gz", {u"a.tar.gz"}, "a.tar(1).gz"},
        {u"a(2)(3).zip", {u"a(2)(3).zip"}, "a(2)(4).zip"},
        // What is no number in parentheses stays part of the name.
        {u"a(x).zip", {u"a(x).zip"}, "a(x)(1).zip"},
        {u"a().zip", {u"a().zip"}, "a()(1).zip"},
        {u"a(-1).zip", {u"a(-1).zip"}, "a(-1)(1).zip"},
        {u"a(1) b.zip", {u"a(1) b.zip"}, "a(1) b(1).zip"},
        {u"a 7).zip", {u"a 7).zip"}, "a 7)(1).zip"},
        {u"a(99999999999999999999).zip", {u"a(99999999999999999999).zip"}, "a(99999999999999999999)(1).zip"},
        {u"\u65e5\u672c.zip", {u"\u65e5\u672c.zip"}, "\xE6\x97\xA5\xE6\x9C\xAC(1).zip"},
    };
    for (const Case& c : cases) EXPECT_EQ(free_among(c.name, c.taken), c.free) << to_utf8(c.name);
}

TEST(SafeFileName, IsOnePlainNameWhateverCame) {
    struct Case {
        std::u16string name;
        const char* safe;
    };
    const Case cases[] = {
        {u"file.zip", "file.zip"},
        {u"no extension", "no extension"},
        {u".hidden", "_.hidden"},
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
        // What Windows refuses or cuts off.
        {u"a<b>c\"d|e?f*g.txt", "a_b_c_d_e_f_g.txt"},
        {u"name.txt. . ", "name.txt"},
        {u"  name.txt", "name.txt"},
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
    for (const Case& c : cases) EXPECT_EQ(to_utf8(safe_file_name(c.name)), c.safe) << to_utf8(c.name);
    EXPECT_EQ(to_utf8(safe_file_name(u"/", u"example.org")), "example.org");
}

TEST(SafeFileName, IsShortEnoughForEveryFileSystemAndKeepsItsExtension) {
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
}

}  // namespace
}  // namespace vantlow
