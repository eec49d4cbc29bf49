// Names of files: what a server says, what is free.
#include <gtest/gtest.h>

#include <set>

#include "base/safe_name.h"
#include "base/text.h"
#include "transfer/http/content_name.h"

namespace vantlow {
namespace {

TEST(ContentName, IsWhatTheDispositionSays) {
    const struct {
        const char* field;
        std::u16string name;
    } cases[] = {
        // RFC 6266, with and without quotes, in any order, case and spacing.
        {"attachment; filename=example.html", u"example.html"},
        {"INLINE; FILENAME= \"an example.html\"", u"an example.html"},
        {"attachment;filename=\"a;b=c.zip\" ; size=5", u"a;b=c.zip"},
        {"attachment; filename=\"say \\\"hi\\\" \\\\.txt\"", u"say \"hi\" \\.txt"},
        {"attachment; filename=\"unclosed.txt", u"unclosed.txt"},
        {"filename=\"no type.txt\"", u"no type.txt"},
        {"attachment; filename=\"first\"; filename=\"second\"", u"first"},
        {"attachment; xfilename=a; filename=b", u"b"},
        {"attachment; dummy=\"; filename=wrong\"; filename=right", u"right"},
        // RFC 8187: the extended form wins wherever it stands.
        {"attachment; filename=\"EURO rates\"; filename*=utf-8''%e2%82%ac%20rates", u"\u20ac rates"},
        {"attachment; filename*=UTF-8'en'a%2Fb%27.txt; filename=plain", u"a/b'.txt"},
        {"attachment; filename*=ISO-8859-1'en'%A3%20rates", u"\u00a3 rates"},
        {"attachment; filename*=utf-8''%F0%9F%93%81.txt", u"\U0001F4C1.txt"},
        // An extended form that cannot be read gives way.
        {"attachment; filename*=utf-8''%C3; filename=plain", u"plain"},
        {"attachment; filename*=koi8-r''%C3; filename=plain", u"plain"},
        {"attachment; filename*=nothing; filename=plain", u"plain"},
        {"attachment; filename=plain; filename*=utf-8'broken", u"plain"},
        // Raw UTF-8 and percent-encoding in the plain form.
        {"attachment; filename=\"Gr\xC3\xBC\xC3\x9F"
         "e.txt\"",
         u"Gr\u00fc\u00dfe.txt"},
        {"attachment; filename=\"Gr%C3%BC%C3%9Fe.txt\"", u"Gr\u00fc\u00dfe.txt"},
        // Latin-1, which is the code page of no system that speaks UTF-8.
        {"attachment; filename=\"Gr\xFC\xDF"
         "e \x96 5 \x80.txt\"",
         u"Gr\u00fc\u00dfe \u2013 5 \u20ac.txt"},
        {"attachment; filename=\"caf%E9.txt\"", u"caf\u00e9.txt"},
        {"attachment; filename=\"100%.txt\"", u"100%.txt"},
        {"attachment; filename=\"100%zz.txt\"", u"100%zz.txt"},
        // The encoded words of mail (RFC 2047).
        {"attachment; filename=\"=?UTF-8?B?Z3LDvC5iaW4=?=\"", u"gr\u00fc.bin"},
        {"attachment; filename=\"=?utf-8?Q?gr=C3=BC_100%25?= =?iso-8859-1?q?=DF.bin?=\"",
         u"gr\u00fc 100%25\u00df.bin"},
        {"attachment; filename=\"=?utf-8?B?!?=\"", u"=?utf-8?B?!?="},
        {"attachment; filename=\"=?utf-8?\"", u"=?utf-8?"},
        {"attachment", u""},
        {"", u""},
        {";;;", u""},
        {"attachment; filename", u""},
        {"attachment; filename=", u""},
        {"attachment; filename=\"\"", u""},
    };
    for (const auto& c : cases) EXPECT_EQ(to_utf8(disposition_name(c.field)), to_utf8(c.name)) << c.field;
}

TEST(ContentName, IsElseTheEndOfThePath) {
    const struct {
        const char* path;
        std::u16string name;
    } cases[] = {
        {"/dir/file.zip", u"file.zip"},
        {"/dir/file.zip?x=/other.zip#/third", u"file.zip"},
        {"/dir/", u""},
        {"/", u""},
        {"", u""},
        {"/a%20b%C3%BC.zip", u"a b\u00fc.zip"},
        {"/caf%E9.zip", u"caf\u00e9.zip"},
        {"/a%2Fb.zip", u"a/b.zip"},
        {"/50%25.zip", u"50%.zip"},
        {"/file%", u"file%"},
        {"/a+b", u"a+b"},
    };
    for (const auto& c : cases) EXPECT_EQ(to_utf8(path_name(c.path)), to_utf8(c.name)) << c.path;
}

TEST(ContentName, TellsAGzipFileByItsTypeOrName) {
    EXPECT_TRUE(is_gzip_file("application/x-gzip", u"page"));
    EXPECT_TRUE(is_gzip_file("application/x-compressed", u""));
    for (const char16_t* name : {u"a.tar.gz", u"A.TGZ", u"drawing.svgz"}) EXPECT_TRUE(is_gzip_file("", name));
    for (const char16_t* name : {u"a.txt", u"gz", u"a.gz.txt", u"targz", u""})
        EXPECT_FALSE(is_gzip_file("text/plain", name));
}

std::string free_among(const std::u16string& name, const std::set<std::u16string>& taken) {
    return to_utf8(
        free_name(name, [&](const std::u16string& candidate) { return taken.contains(candidate); }));
}

TEST(FreeName, CountsOnFromTheNumberThatIsThere) {
    const struct {
        std::u16string name;
        std::set<std::u16string> taken;
        const char* free;
    } cases[] = {
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
        // Parentheses without a number stay part of the name.
        {u"a(x).zip", {u"a(x).zip"}, "a(x)(1).zip"},
        {u"a().zip", {u"a().zip"}, "a()(1).zip"},
        {u"a(-1).zip", {u"a(-1).zip"}, "a(-1)(1).zip"},
        {u"a(1) b.zip", {u"a(1) b.zip"}, "a(1) b(1).zip"},
        {u"a 7).zip", {u"a 7).zip"}, "a 7)(1).zip"},
        {u"a(99999999999999999999).zip", {u"a(99999999999999999999).zip"}, "a(99999999999999999999)(1).zip"},
        {u"\u65e5\u672c.zip", {u"\u65e5\u672c.zip"}, "\xE6\x97\xA5\xE6\x9C\xAC(1).zip"},
    };
    for (const auto& c : cases) EXPECT_EQ(free_among(c.name, c.taken), c.free) << to_utf8(c.name);
}

}  // namespace
}  // namespace vantlow
