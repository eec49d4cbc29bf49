// eDonkey links, read and written.
#include "ed2k/link.h"

#include <gtest/gtest.h>

#include "base/codes.h"
#include "base/text.h"

namespace vantlow {
namespace {

constexpr const char16_t* digits = u"0123456789abcdefABCDEF0123456789";

std::u16string link_of(const std::u16string& name, const std::u16string& size = u"5") {
    return u"ed2k://|file|" + name + u"|" + size + u"|" + digits + u"|/";
}

TEST(Ed2kLink, ReadsTheLinkOfAFileTolerantly) {
    const struct {
        const char* what;
        std::u16string text;
        std::u16string name;
        std::uint64_t size;
    } cases[] = {
        {"plain", link_of(u"a.iso", u"5368709120"), u"a.iso", 5368709120},
        {"backslashes", u"ed2k:\\\\|file|a.iso|5|" + std::u16string(digits) + u"|\\", u"a.iso", 5},
        {"letter case", u"ED2K://|FILE|a.iso|5|" + std::u16string(digits), u"a.iso", 5},
        {"line break and more", link_of(u"a.iso") + u"\r\ned2k://|file|b", u"a.iso", 5},
        {"further fields", link_of(u"a.iso") + u"|sources,10.0.0.1:4662|/", u"a.iso", 5},
        {"escapes", link_of(u"%41bc%c3%A9"), u"Abc\u00E9", 5},
        {"percent signs", link_of(u"100%%41 %zz %4"), u"100%41 %zz %4", 5},
        {"percent at the end", link_of(u"a%"), u"a%", 5},
        {"backslash in the name", link_of(u"a\\b"), u"a/b", 5},
        {"raw characters", link_of(u"\u65E5 \u00E9"), u"\u65E5 \u00E9", 5},
        {"no number", link_of(u"a", u"many"), u"a", 0},
        {"a number and more", link_of(u"a", u" 12x"), u"a", 12},
        {"too large", link_of(u"a", u"99999999999999999999"), u"a", INT64_MAX},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CED2KLink link;
        ASSERT_TRUE(link.parse(c.text));
        EXPECT_EQ(to_utf8(link.file_name()), to_utf8(c.name));
        EXPECT_EQ(link.file_size(), c.size);
        EXPECT_EQ(to_utf8(link.hash_text()), to_utf8(digits)) << "as it stands in the link";
        EXPECT_EQ(to_hex(link.file_hash()), "0123456789abcdefabcdef0123456789");
        EXPECT_TRUE(link.is_hash_valid());
    }
}

TEST(Ed2kLink, RefusesWhatIsNotTheLinkOfAFileAndKeepsWhatItHad) {
    const std::u16string hash(digits);
    CED2KLink link;
    ASSERT_TRUE(link.parse(link_of(u"kept")));
    for (const std::u16string& text :
         {u"ed2k://|file|a|5|" + hash.substr(1) + u"|/", u"ed2k://|file|a|5|" + hash + u"0|/",
          u"ed2k://|file|a|" + hash, u"ed2k://|server|10.0.0.1|4661|" + hash, u"ed2k:/|file|a|5|" + hash,
          std::u16string(u"\r\n") + link_of(u"a"), std::u16string()}) {
        EXPECT_FALSE(link.parse(text)) << to_utf8(text);
    }
    EXPECT_EQ(to_utf8(link.file_name()), "kept");
    ASSERT_TRUE(link.parse(u"ed2k://|file|a|5|" + std::u16string(32, u'g') + u"|/"));
    EXPECT_FALSE(link.is_hash_valid());
}

TEST(Ed2kLink, WritesLinksThatReadBack) {
    CED2KLink::Hash hash{};
    hash[0] = std::byte{0xAB};
    hash[15] = std::byte{0x0C};
    const CED2KLink link(u"a b\u00E9#\"<>[\\]^`{}~%41|", 5368709120U, hash);
    EXPECT_EQ(to_utf8(link.format()),
              "ed2k://|file|a%20b%C3%A9%23%22%3C%3E%5B%5C%5D%5E%60%7B%7D~%41||5368709120|"
              "AB00000000000000000000000000000C|/");
    const CED2KLink plain(u"\u65E5\u672C [1].iso", 7, hash);
    CED2KLink again;
    ASSERT_TRUE(again.parse(plain.format()));
    EXPECT_EQ(to_utf8(again.file_name()), to_utf8(plain.file_name()));
    EXPECT_EQ(again.file_size(), 7U);
    EXPECT_EQ(again.file_hash(), hash);
    EXPECT_EQ(ed2k_server_line("10.0.0.1", 4661), "ed2k://|server|10.0.0.1|4661|/\r\n");
}

}  // namespace
}  // namespace vantlow
