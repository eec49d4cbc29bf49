#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <string_view>

#include "base/text.h"
#include "media/amf0.h"
#include "platform/local_text.h"

namespace vantlow {
namespace {

using namespace std::string_literals;

const std::byte* bytes(const std::string& text) {
    return reinterpret_cast<const std::byte*>(text.data());
}

bool parse(CAMF0& body, const std::string& text) {
    return body.Parse(bytes(text), text.size());
}

std::size_t count(const CAMF0& body) {
    return body.values() == nullptr ? 0 : body.values()->values.size();
}

std::string written(const CAMFBase& value) {
    CQoMemFile stream;
    return value.Write(stream)
               ? std::string(reinterpret_cast<const char*>(stream.bytes().data()), stream.size())
               : "failed";
}

std::unique_ptr<CAMFBase> value_of(const std::string& text) {
    const std::byte* cursor = bytes(text);
    auto value = CAMFBase::ParseValue(cursor, bytes(text) + text.size());
    EXPECT_TRUE(value == nullptr || cursor == bytes(text) + text.size()) << "not all was consumed";
    return value;
}

const std::string name = "\x02\x00\x0AonMetaData"s;
const std::string two = "\x00\x40\x00\x00\x00\x00\x00\x00\x00"s;  // 2.0
const std::string end = "\x00\x00\x09"s;
const std::string entry = "\x00\x01x"s + two;

TEST(Amf, EveryKindIsWrittenAsItWasRead) {
    const std::string kinds[] = {
        two,
        "\x01\x05"s,
        "\x02\x00\x02\xC3\xA4"s,
        "\x02\x00\x00"s,
        "\x04\x00\x01m"s,
        "\x05"s,
        "\x06"s,
        "\x07\x12\x34"s,
        "\x0C\x00\x00\x00\x01l"s,
        "\x0F\x00\x00\x00\x01<"s,
        "\x0B\x00\x00\x00\x00\x00\x00\x00\x00\xFF\xC4"s,
        "\x03"s + entry + end,
        "\x08\x00\x00\x00\x01"s + entry + end,
        "\x0A\x00\x00\x00\x02"s + two + "\x05",
        "\x10\x02\x00\x01"s + "C\x03" + entry + end,
    };
    for (const std::string& text : kinds) {
        const auto value = value_of(text);
        ASSERT_NE(value, nullptr) << testing::PrintToString(text);
        EXPECT_EQ(written(*value), text);
        // Cut anywhere it is none, except for arrays, which end where their values end.
        const bool lenient = value->type == amf::mixed_array || value->type == amf::strict_array;
        for (std::size_t length = 0; length < text.size() && !lenient; ++length) {
            EXPECT_EQ(value_of(text.substr(0, length)), nullptr) << length << testing::PrintToString(text);
        }
    }
    for (const char marker : {'\x09', '\x0D', '\x0E', '\x11', '\xFF'}) {
        EXPECT_EQ(value_of(std::string(1, marker) + std::string(20, '\0')), nullptr);
    }
    EXPECT_EQ(written(CAMFNumber()), "failed");
    EXPECT_EQ(written(CAMFString()), "failed");
}

TEST(Amf, BodiesAreReadWithTheirOddities) {
    struct Case {
        std::string text;
        bool ok;
        std::size_t values;
    };
    const std::string mixed = "\x08\x00\x00\x00\x63"s + entry;  // the count is not believed
    const std::string strict = "\x0A\xFF\xFF\xFF\xFF"s + two + two;
    const Case cases[] = {
        {"", true, 0},
        {name, true, 0},
        {name + std::string(5, '\0'), true, 0},
        {name + two, true, 2},  // the zero is a marker, not padding
        {name + "\x05", true, 2},
        {name + mixed, true, 2},  // no end marker
        {name + mixed + end, true, 2},
        {name + mixed + "\x00\x05q"s, false, 0},  // a name that is cut off ends it; what is left is no value
        {name + "\x03" + entry, true, 1},         // nothing is left behind the broken object
        {name + "\x03" + entry + "\x00\x01y\x0D"s, false, 0},
        {name + strict, true, 2},
        {name + "\x0C\xFF\xFF\xFF\xFFlong"s, false, 0},
        {two + "\x07\x00"s, false, 0},
    };
    for (const Case& one : cases) {
        CAMF0 body;
        EXPECT_EQ(parse(body, one.text), one.ok) << testing::PrintToString(one.text);
        EXPECT_EQ(count(body), one.values) << testing::PrintToString(one.text);
    }
    CAMF0 body;
    ASSERT_TRUE(parse(body, name + strict));
    EXPECT_EQ(dynamic_cast<const CAMFArray&>(*body.values()->values[1]).values.size(), 2U);
}

TEST(Amf, NestingEndsAt256Levels) {
    const auto nested = [](int levels) {
        std::string text;
        for (int i = 1; i < levels; ++i) text += "\x0A\x00\x00\x00\x01"s;
        return text + "\x05";
    };
    const auto depth = [](const CAMFBase* value) {
        int levels = 0;
        for (; value != nullptr; ++levels) {
            const auto* array = dynamic_cast<const CAMFArray*>(value);
            value = array != nullptr && !array->values.empty() ? array->values[0].get() : nullptr;
        }
        return levels;
    };
    EXPECT_EQ(depth(value_of(nested(256)).get()), 256);
    const std::string objects = [] {
        std::string text;
        for (int i = 0; i < 100000; ++i) text += "\x03\x00\x01k"s;
        return text;
    }();
    EXPECT_EQ(value_of(objects), nullptr);
    const std::string deep = nested(257);
    const std::byte* cursor = bytes(deep);
    EXPECT_EQ(depth(CAMFBase::ParseValue(cursor, bytes(deep) + deep.size()).get()), 256)
        << "the last one is missing";
}

TEST(Amf, LooksUpByNameAndKind) {
    const std::string date = "\x0B\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"s;
    CAMF0 body;
    ASSERT_TRUE(parse(body, name + "\x08\x00\x00\x00\x00"s + "\x00\x01n"s + two + "\x00\x01"s + "b\x01\x07" +
                                "\x00\x01t\x02\x00\x02hi"s + "\x00\x01"s + "d" + date + "\x00\x01z\x05"s +
                                "\x00\x01o\x03"s + entry + end + end + "\x03\x00\x01x"s + "\x01\x01" + end));
    AmfFound found;
    ASSERT_TRUE(body.GetValue(u"n", found, amf::number));
    EXPECT_EQ(std::get<double>(found), 2.0);
    ASSERT_TRUE(body.GetValue(u"b", found));
    EXPECT_EQ(std::get<std::int32_t>(found), 1);
    ASSERT_TRUE(body.GetValue(u"t", found));
    EXPECT_EQ(std::get<std::u16string>(found), u"hi");
    ASSERT_TRUE(body.GetValue(u"d", found));
    EXPECT_EQ(std::get<std::uint64_t>(found), 116444736000000000U);
    ASSERT_TRUE(body.GetValue(u"o", found));
    EXPECT_EQ(std::get<CAMFBase*>(found)->type, amf::object);
    ASSERT_TRUE(body.GetValue(u"x", found)) << "in a later object, not in the one inside";
    EXPECT_EQ(std::get<std::int32_t>(found), 1);
    EXPECT_FALSE(body.GetValue(u"n", found, amf::string));
    EXPECT_FALSE(body.GetValue(u"z", found)) << "null is nothing";
    EXPECT_FALSE(body.GetValue(u"absent", found));
}

TEST(Amf, SetsAndAddsValues) {
    const std::string metadata = "\x08\x00\x00\x00\x01"s;
    CAMF0 body;
    ASSERT_TRUE(parse(body, name + metadata + entry + end));
    const auto encoded = [](const std::string& text) { return std::as_bytes(std::span(text)); };
    const std::string three = "\x00\x40\x08\x00\x00\x00\x00\x00\x00"s;
    const auto whole = [&body] {
        CQoMemFile stream;
        EXPECT_TRUE(body.Write(stream));
        return std::string(reinterpret_cast<const char*>(stream.bytes().data()), stream.size());
    };
    EXPECT_FALSE(body.SetValue(u"y", encoded(three), false));
    EXPECT_FALSE(body.SetValue(u"x", encoded("\x0D"s), true));
    EXPECT_EQ(whole(), name + metadata + entry + end) << "nothing was changed";
    EXPECT_TRUE(body.SetValue(u"x", encoded(three), false));
    EXPECT_TRUE(body.SetValue(u"y", encoded("\x05"s), true));
    EXPECT_EQ(whole(), name + "\x08\x00\x00\x00\x02"s + "\x00\x01x"s + three + "\x00\x01y\x05"s + end);

    const std::int64_t positions[] = {13, 5000000000};
    const std::uint32_t times[] = {0, 1500};
    EXPECT_FALSE(body.SetKeyframes(positions, std::span(times).first(1)));
    EXPECT_EQ(whole().find("keyframes"), std::string::npos);
    EXPECT_TRUE(body.SetKeyframes(positions, times));
    EXPECT_NE(
        whole().find("\x00\x09keyframes\x03\x00\x0D"s + "filepositions\x0A\x00\x00\x00\x02\x00\x40\x2A"s),
        std::string::npos);
    EXPECT_NE(whole().find("\x00\x05times\x0A\x00\x00\x00\x02"s + std::string(9, '\0') + "\x00\x3F\xF8"s),
              std::string::npos);
}

TEST(Amf, ShowsValues) {
    const std::pair<double, std::u16string> numbers[] = {{25.0, u"25"},
                                                         {25.5, u"25.500"},
                                                         {-3, u"-3"},
                                                         {std::numeric_limits<double>::infinity(), u"N/A"},
                                                         {1e15, u"1000000000000000"}};
    for (const auto& [value, text] : numbers) {
        CAMFNumber number;
        number.value = value;
        EXPECT_EQ(number.ToString(), text);
    }
    CAMFNumber nan;
    nan.value = std::nan("");
    EXPECT_NE(nan.ToString().find(u"nan"), std::u16string::npos);
    CAMFDate date;
    date.milliseconds = 9.3e18;  // above the signed range: no trap, no sign
    EXPECT_EQ(date.file_time(), 116444736000000000U + 9300000000000000000U * 10000U);
    date.milliseconds = 86400000.0 * 365;
    const LocalDate local = local_date(date.file_time());
    EXPECT_EQ(date.ToString(), local.date + u" " + local.time);
    EXPECT_NE(local.date.find(u"71"), std::u16string::npos);

    const auto value = value_of("\x03"s + "\x00\x01i\x08\x00\x00\x00\x00"s + entry + end + "\x00\x01"s +
                                "a\x0A\x00\x00\x00\x01"s + two + "\x00\x01t\x02\x00\x01v"s + end);
    ASSERT_NE(value, nullptr);
    std::vector<std::u16string> names;
    std::vector<std::u16string> texts;
    value->ListEntries(1, names, texts);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"  i", u"    x", u"  a", u"", u"  t"}));
    EXPECT_EQ(texts, (std::vector<std::u16string>{u"", u"2", u"", u"2", u"v"}));
}

}  // namespace
}  // namespace vantlow
