#include "platform/settings_backend.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "base/codes.h"
#include "base/text.h"
#include "platform/process.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

class SettingsFiles : public testing::Test {
  protected:
    std::unique_ptr<SettingsBackend> open() { return open_settings_file(path); }

    test::TempFolder folder{test::TempFolder::Name::foreign};
    const std::u16string path = folder.path(u"settings.ini");
};

TEST_F(SettingsFiles, ReadWhatAPersonWrote) {
    folder.write(u"settings.ini",
                 "\xEF\xBB\xBF; mine\r\n"
                 "[ Settings ]\r\n"
                 "  Split Size =  262144 \r\n"
                 "Folder=C:\\new\\100%20\r\n"
                 "Quoted=\" x \"\r\n"
                 "Half=\"x\r\n"
                 "no value\r\n"
                 "=nothing\r\n"
                 "Equals=a=b\r\n"
                 "Split Size=65536\r\n"
                 "[connection]\r\n"
                 "Retries=\r\n"
                 "[settings]\r\n"
                 "Caf\xC3\xA9=\xE6\x97\xA5");
    const auto store = open();
    EXPECT_TRUE(store->is_readable());
    EXPECT_EQ(store->read(u"SETTINGS", u"split size"), u"65536") << "the last one counts";
    EXPECT_EQ(store->read(u"Settings", u"Folder"), u"C:\\new\\100%20");
    EXPECT_EQ(store->read(u"Settings", u"Quoted"), u" x ");
    EXPECT_EQ(store->read(u"Settings", u"Half"), u"\"x");
    EXPECT_EQ(store->read(u"Settings", u"Equals"), u"a=b");
    EXPECT_EQ(store->read(u"Settings", u"Caf\u00e9"), u"\u65e5");
    EXPECT_EQ(store->read(u"Connection", u"Retries"), u"");
    EXPECT_EQ(store->read(u"Connection", u"Limit"), std::nullopt);
    EXPECT_EQ(store->read(u"", u"no value"), std::nullopt);
    EXPECT_EQ(store->all().size(), 2U);
}

TEST_F(SettingsFiles, AWriteTouchesOneLine) {
    folder.write(u"settings.ini", "# head\n\n[A]\nx=1\n; note\n\n# about B\n[B]\nX=2\ngarbage\n");
    const auto store = open();
    ASSERT_TRUE(store->write(u"a", u"X", u"9").ok());
    ASSERT_TRUE(store->write(u"A", u"new key", u"7").ok());
    ASSERT_TRUE(store->write(u"C", u"y", u"3").ok());
    ASSERT_TRUE(store->erase(u"b", u"x").ok());
    ASSERT_TRUE(store->erase(u"b", u"x").ok()) << "it is gone already";
    EXPECT_EQ(folder.read(u"settings.ini"),
              "# head\n\n[A]\nX=9\nnew key=7\n; note\n\n# about B\n[B]\ngarbage\n\n[C]\ny=3\n");
    EXPECT_EQ(store->read(u"B", u"X"), std::nullopt);
}

TEST_F(SettingsFiles, EveryValueComesBack) {
    const std::u16string values[] = {u"",          u"plain",  u" ",        u"\tends ",    u"\"quoted\"",
                                     u"\"",        u"%\"x\"", u"%41",      u"a\nb\r\nc%", u"\u65e5\U0001F4C1",
                                     u"C:\\dir\\", u";#[]=",  u"\x1f\"\n", u"x\"",        u"\xDC80 raw"};
    {
        const auto store = open();
        int key = 0;
        for (const std::u16string& value : values) {
            const std::u16string name = u"key " + std::u16string(1, static_cast<char16_t>(u'a' + key++));
            ASSERT_TRUE(store->write(u"Section", name, value).ok());
            EXPECT_EQ(store->read(u"Section", name), value);
        }
    }
    const auto again = open();
    int key = 0;
    for (const std::u16string& value : values) {
        const std::u16string name = u"key " + std::u16string(1, static_cast<char16_t>(u'a' + key++));
        EXPECT_EQ(again->read(u"Section", name), value);
    }
}

TEST_F(SettingsFiles, NamesThatCannotStandInAFileAreRefused) {
    const auto store = open();
    for (const std::u16string_view key : {u"", u"a=b", u" a", u"a\n[B]", u"[a", u";a", u"#a"}) {
        EXPECT_FALSE(store->write(u"A", key, u"1").ok());
    }
    EXPECT_FALSE(store->write(u"A\nB", u"x", u"1").ok());
    EXPECT_TRUE(store->write(u"A]b", u"x", u"1").ok());
    EXPECT_EQ(open()->read(u"A]b", u"x"), u"1");
}

TEST_F(SettingsFiles, ChangesOfOthersAreSeenAndKept) {
    const auto mine = open();
    EXPECT_FALSE(mine->refresh());
    const auto theirs = open();
    ASSERT_TRUE(theirs->write(u"A", u"x", u"theirs").ok());
    EXPECT_EQ(mine->read(u"A", u"x"), std::nullopt) << "only refresh looks";
    EXPECT_TRUE(mine->refresh());
    EXPECT_EQ(mine->read(u"A", u"x"), u"theirs");
    EXPECT_FALSE(mine->refresh());
    ASSERT_TRUE(theirs->write(u"A", u"y", u"2").ok());
    ASSERT_TRUE(mine->write(u"A", u"z", u"3").ok());
    EXPECT_FALSE(mine->refresh()) << "its own change is no news";
    const auto third = open();
    EXPECT_EQ(third->read(u"A", u"y"), u"2");
    EXPECT_EQ(third->read(u"A", u"z"), u"3");
    ASSERT_TRUE(remove_file(path).ok());
    EXPECT_TRUE(mine->refresh());
    EXPECT_EQ(mine->read(u"A", u"z"), std::nullopt);
}

TEST_F(SettingsFiles, WritersSideBySideLoseNothing) {
    constexpr int writers = 4;
    constexpr int values = 10;
    std::vector<std::thread> threads;
    for (int i = 0; i < writers; ++i) {
        threads.emplace_back([this, i] {
            const auto store = open();
            for (int j = 0; j < values; ++j) {
                const std::u16string key(static_cast<std::size_t>(i * values + j + 1), u'k');
                EXPECT_TRUE(store->write(u"A", key, u"1").ok());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(open()->all()[u"A"].size(), static_cast<std::size_t>(writers * values));
}

TEST_F(SettingsFiles, WhatCannotBeReadIsNotOverwritten) {
    const std::string too_long(std::size_t{1 << 20U} + 1, '#');
    const std::string not_text("[A]\0x=1\n", 8);
    for (const std::string& content : {too_long, not_text}) {
        folder.write(u"settings.ini", content);
        const auto store = open();
        EXPECT_FALSE(store->is_readable());
        EXPECT_EQ(store->read(u"A", u"x"), std::nullopt);
        EXPECT_FALSE(store->write(u"A", u"x", u"1").ok());
        EXPECT_EQ(folder.read(u"settings.ini"), content);
    }
    folder.write(u"settings.ini", "[A]\nx=1\n");
    const auto store = open();
    folder.write(u"settings.ini", not_text);
    EXPECT_TRUE(store->refresh());
    EXPECT_FALSE(store->is_readable());
    EXPECT_EQ(store->read(u"A", u"x"), u"1") << "what was known stays";
    EXPECT_FALSE(store->write(u"A", u"y", std::u16string(1 << 20U, u'x')).ok());
}

TEST_F(SettingsFiles, AFileInAMissingFolderIsMadeByTheFirstWrite) {
    const std::u16string deep = folder.path(u"not/there/settings.ini");
    const auto store = open_settings_file(deep);
    EXPECT_TRUE(store->is_readable());
    EXPECT_TRUE(store->all().empty());
    ASSERT_TRUE(store->erase(u"A", u"x").ok());
    EXPECT_TRUE(folder.names().empty()) << "nothing to erase makes no file";
    ASSERT_TRUE(store->write(u"A", u"x", u"1").ok());
    EXPECT_EQ(folder.read(u"not/there/settings.ini"), "[A]\nx=1\n");
}

// Runs the system's registry tool on a section of the program's key.
bool edit_registry(const std::string& action, const std::u16string& section, const std::string& rest) {
    const std::string key = " \"HKCU\\Software\\Qo\\Vantlow\\" + to_utf8(section) + "\" ";
    return std::system(("reg " + action + key + rest + " /f >NUL 2>&1").c_str()) == 0;
}

TEST(UserSettings, AreKeptInTheRegistry) {
    if (!platform_name().starts_with("Windows")) GTEST_SKIP() << "the user's own file is left alone";
    unsigned char random[16];
    random_guid(random);
    const std::u16string section = u"Test " + to_utf16(to_hex(std::as_bytes(std::span(random))));
    const auto mine = open_user_settings();
    const auto theirs = open_user_settings();
    EXPECT_TRUE(mine->is_readable());
    EXPECT_EQ(mine->read(section, u"Split Size"), std::nullopt);
    ASSERT_TRUE(mine->write(section, u"Split Size", u" 65536\nGr\u00fc\u00dfe \u65e5").ok());
    EXPECT_EQ(theirs->read(section, u"split size"), u" 65536\nGr\u00fc\u00dfe \u65e5");
    EXPECT_FALSE(mine->refresh()) << "its own change is no news";
    EXPECT_TRUE(theirs->refresh());
    EXPECT_FALSE(theirs->refresh());
    ASSERT_TRUE(edit_registry("add", section, "/v Number /t REG_DWORD /d 262144"));
    EXPECT_TRUE(mine->refresh());
    EXPECT_EQ(mine->read(section, u"Number"), u"262144");
    EXPECT_EQ(mine->all()[section].size(), 2U);
    ASSERT_TRUE(mine->write(section, u"Long", std::u16string(5000, u'x')).ok());
    EXPECT_EQ(mine->read(section, u"Long"), std::u16string(5000, u'x'));
    ASSERT_TRUE(mine->erase(section, u"Number").ok());
    ASSERT_TRUE(mine->erase(section, u"Number").ok());
    EXPECT_EQ(mine->read(section, u"Number"), std::nullopt);
    EXPECT_FALSE(mine->write(u"a\\b", u"x", u"1").ok());
    EXPECT_TRUE(edit_registry("delete", section, ""));
}

}  // namespace
}  // namespace vantlow
