#include "bt/bencode.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/temp_folder.h"

namespace vantlow {
namespace {

std::string encoded(const CBEObject* value) {
    CBEncode writer;
    writer.write(value);
    return std::string(writer.output());
}

// What is read from the bytes, written again, and what is left unread.
struct Reading {
    bool found = false;
    std::string again;
    std::string rest;
};

Reading read_value(std::string_view bytes) {
    CBEncode parser;
    parser.load_memory(bytes);
    const auto value = parser.parse_value();
    return {value != nullptr, encoded(value.get()), std::string(parser.rest())};
}

TEST(Bencode, ReadsWhatStandsBeforeTheDamageAndNothingElse) {
    const struct {
        const char* bytes;
        bool found;
        const char* again;
        const char* rest;
    } cases[] = {
        {"d3:fooi42ee", true, "d3:fooi42ee", ""},
        {"d3:foo1:b3:bar1:ae", true, "d3:foo1:b3:bar1:ae", ""},  // not sorted
        {"d1:ai1e1:ai2ee", true, "d1:ai1e1:ai2ee", ""},          // keys that occur twice
        {"d1:a", true, "de", ""},
        {"d1:ai5e1:b", true, "d1:ai5ee", ""},
        {"d1:a1:bx1:c1:de", true, "d1:a1:be", "x1:c1:de"},
        {"d1:ai1xe1:b1:ce", true, "de", "1xe1:b1:ce"},
        {"li1ei2exe", true, "li1ei2ee", "xe"},
        {"lli1exe", true, "lli1eee", "xe"},  // the outer list stops at the same byte
        {"ld1:aee", true, "ldee", "e"},      // the dictionary lacks a value and leaves the "e" to the list
        {"l5:abci1ee", true, "l5:abci1e", "e"},  // a string that takes what was meant otherwise
        {"l9:abci1ee", true, "le", "9:abci1ee"},
        {":abc", true, "0:", "abc"},
        {"003:abcd", true, "3:abc", "d"},
        {"5:abc", false, "", "5:abc"},
        {"99999999999999999999:a", false, "", "99999999999999999999:a"},
        {"4294967297:a", false, "", "4294967297:a"},  // 1 in 32 bits
        {"3", false, "", "3"},
        {"-1:a", false, "", "-1:a"},
        {"x", false, "", "x"},
        {"", false, "", ""},
    };
    for (const auto& c : cases) {
        const Reading reading = read_value(c.bytes);
        EXPECT_EQ(reading.found, c.found) << c.bytes;
        EXPECT_EQ(reading.again, c.again) << c.bytes;
        EXPECT_EQ(reading.rest, c.rest) << c.bytes;
    }
}

TEST(Bencode, ReadsIntegersAsTheyAreWrittenInTheWild) {
    using Limits = std::numeric_limits<std::int64_t>;
    const std::pair<const char*, std::int64_t> numbers[] = {
        {"i+7e", 7},
        {"i-0e", 0},
        {"ie", 0},
        {"i-e", 0},
        {"i+e", 0},
        {"i--3e", 0},
        {"i+-3e", 0},
        {"i1-2e", 1},
        {"i007e", 7},
        {"i-42e", -42},
        {"i9223372036854775807e", Limits::max()},
        {"i9223372036854775808e", Limits::max()},
        {"i-9223372036854775808e", Limits::min()},
        {"i-99999999999999999999999e", Limits::min()},
    };
    for (const auto& [bytes, expected] : numbers) {
        CBEncode parser;
        parser.load_memory(bytes);
        const auto value = parser.parse_value();
        ASSERT_NE(as_integer(value.get()), nullptr) << bytes;
        EXPECT_EQ(as_integer(value.get())->value, expected) << bytes;
    }
    for (const char* bytes : {"i1.5e", "i 1e", "i12", "i"}) EXPECT_FALSE(read_value(bytes).found) << bytes;
}

TEST(Bencode, ADocumentIsADictionary) {
    for (const char* bytes : {"le", "i5e", "1:a", ""}) {
        CBEncode parser;
        parser.load_memory(bytes);
        EXPECT_EQ(parser.parse_document(), nullptr) << bytes;
    }
    // Messages carry bytes behind their dictionary.
    CBEncode parser;
    parser.load_memory("d8:msg_typei1ee\x00\xFFraw");
    ASSERT_NE(parser.parse_document(), nullptr);
    EXPECT_EQ(parser.load_memory(std::string_view("d1:ai1ee\0\xFF", 10)), true);
    ASSERT_NE(parser.parse_value(), nullptr);
    EXPECT_EQ(parser.rest(), std::string_view("\0\xFF", 2));
}

TEST(Bencode, KeepsTheRawBytesOfTheFirstInfoValueThatEnds) {
    const std::pair<const char*, const char*> cases[] = {
        {"d8:announce1:u4:infod1:bi+07e1:ai2ee1:zi1ee", "d1:bi+07e1:ai2ee"},
        {"d4:info1:a4:info1:be", "1:a"},
        {"d9:info-hash2:xx4:infodee", "2:xx"},      // any key that begins so
        {"d1:ad4:info1:ie4:infod1:ni1eee", "1:i"},  // the inner one ends before
        {"d4:infod5:infox1:iee", "1:i"},
        {"d4:infod1:a1:bx", "d1:a1:b"},  // cut off: as far as it was read
        {"d3:inf1:ae", ""},
        {"d4:infox", ""},
    };
    for (const auto& [bytes, expected] : cases) {
        CBEncode parser;
        parser.load_memory(bytes);
        const auto document = parser.parse_document();
        EXPECT_EQ(parser.info_copy(), expected) << bytes;
    }
    CBEncode parser;
    parser.load_memory("d4:info1:ae");
    EXPECT_NE(parser.parse_document(), nullptr);
    parser.load_memory("de");
    EXPECT_EQ(parser.info_copy(), "") << "of the document before";
}

TEST(Bencode, FindsByPath) {
    CBEncode parser;
    parser.load_memory("d1:ad1:bd1:ci3eee1:ni1e1:ni2e1:lld1:xi1eee0:d0:i9eee");
    const auto document = parser.parse_document();
    const auto number = [&](std::string_view path) {
        const CBEInteger* const found = as_integer(CBEncode::find(document.get(), path));
        return found != nullptr ? found->value : -1;
    };
    EXPECT_EQ(number("a/b/c"), 3);
    EXPECT_EQ(number("n"), 1) << "the first of two";
    EXPECT_EQ(number("/"), 9) << "empty keys";
    for (const char* path : {"a/b/c/d", "n/x", "l/x", "a/", "b", "a/B/c"}) {
        EXPECT_EQ(CBEncode::find(document.get(), path), nullptr) << path;
    }
    EXPECT_EQ(CBEncode::find(nullptr, "a"), nullptr);
}

TEST(Bencode, WritesNothingForANullValue) {
    CBEList list;
    list.add(std::make_unique<CBEInteger>(std::numeric_limits<std::int64_t>::min()));
    list.add(nullptr);
    list.add(std::make_unique<CBEString>(std::string_view("\0e", 2)));
    EXPECT_EQ(encoded(&list), std::string("li-9223372036854775808e2:\0ee", 28));
    EXPECT_EQ(encoded(nullptr), "");
}

// Depth must cost neither the stack nor time that grows with its square; and no document more than its bound.
TEST(Bencode, BearsAnyDepthAndAnySize) {
    std::string deep(1'000'000, 'l');
    EXPECT_EQ(read_value(deep + std::string(deep.size(), 'e')).again.size(), 2 * deep.size());
    // Every level tries, and gives up, at the same long run of digits.
    EXPECT_EQ(read_value(deep + std::string(1'000'000, '7')).again.size(), 2 * deep.size());
    std::string dictionaries;
    for (int i = 0; i < 300'000; ++i) dictionaries += "d1:a";
    EXPECT_TRUE(read_value(dictionaries).found);
    const Reading huge = read_value(std::string(100'000'000, 'l'));
    EXPECT_TRUE(huge.found);
    EXPECT_LT(huge.again.size(), std::size_t{20'000'000});
}

TEST(Bencode, LoadsWholeFilesOnly) {
    const test::TempFolder folder;
    CBEncode parser;
    EXPECT_TRUE(parser.load_file(folder.write(u"a.torrent", "d1:ai1ee")).ok());
    EXPECT_NE(parser.parse_document(), nullptr);
    EXPECT_FALSE(parser.load_file(folder.write(u"empty.torrent", "")).ok());
    EXPECT_EQ(parser.parse_document(), nullptr);
    EXPECT_FALSE(parser.load_file(folder.path(u"none.torrent")).ok());
    EXPECT_FALSE(parser.load_file(folder.path()).ok());
}

}  // namespace
}  // namespace vantlow
