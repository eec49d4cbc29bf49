#include "store/settings.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/text.h"

namespace vantlow {
namespace {

// A store in memory that can fail and change behind the program's back.
class MemoryBackend : public SettingsBackend {
  public:
    Values values;
    bool fails = false;
    bool changed = false;

    std::optional<std::u16string> read(std::u16string_view section, std::u16string_view key) override {
        for (const auto& [name, keys] : values) {
            if (!iequals(name, section)) continue;
            for (const auto& [own, value] : keys) {
                if (iequals(own, key)) return value;
            }
        }
        return std::nullopt;
    }
    FileError write(std::u16string_view section, std::u16string_view key,
                    std::u16string_view value) override {
        if (fails) return {FileFault::access, 13};
        values[std::u16string(section)][std::u16string(key)] = value;
        return {};
    }
    FileError erase(std::u16string_view section, std::u16string_view key) override {
        if (fails) return {FileFault::access, 13};
        values[std::u16string(section)].erase(std::u16string(key));
        return {};
    }
    Values all() override { return values; }
    bool refresh() override { return std::exchange(changed, false); }
    [[nodiscard]] bool is_readable() const override { return true; }
};

struct Store {
    MemoryBackend* backend = new MemoryBackend;
    Settings settings{std::unique_ptr<SettingsBackend>(backend)};
};

TEST(Settings, a_value_for_this_run_hides_the_stored_one_and_is_never_written) {
    Store store;
    ASSERT_TRUE(store.settings.write(u"Connection", u"Limit", u"0").ok());
    store.settings.override_value(u"connection", u"LIMIT", u"1");
    store.settings.override_value(u"New", u"Key", u"x");
    EXPECT_TRUE(store.settings.flag(setting::limit));
    ASSERT_TRUE(store.settings.write(u"Connection", u"Limit", u"2").ok());
    EXPECT_EQ(store.settings.text(u"Connection", u"Limit"), u"1");
    EXPECT_EQ(store.backend->values[u"Connection"][u"Limit"], u"2");

    const SettingsBackend::Values expected{{u"Connection", {{u"Limit", u"1"}}}, {u"New", {{u"Key", u"x"}}}};
    EXPECT_EQ(store.settings.all(), expected) << "one entry for one setting, whatever the letter case";
}

TEST(Settings, numbers_are_read_strictly_and_kept_within_bounds) {
    Settings settings;
    const auto number = [&](std::u16string_view text) {
        settings.override_value(u"S", u"K", text);
        return settings.number(u"S", u"K", 77);
    };
    EXPECT_EQ(number(u"-5"), -5);
    EXPECT_EQ(number(u" 12 "), 12);
    EXPECT_EQ(number(u"99999999999999999999"), INT64_MAX);
    EXPECT_LE(number(u"-99999999999999999999"), -INT64_MAX);
    for (const char16_t* text : {u"", u"-", u"--5", u"0x10", u"5x", u"1.5", u"+5", u"\uFF15"})
        EXPECT_EQ(number(text), 77);

    const auto split_size = [&](std::u16string_view text) {
        settings.override_value(u"Settings", u"Split Size", text);
        return settings.number(setting::split_size);
    };
    EXPECT_EQ(split_size(u"100"), 1024);
    EXPECT_EQ(split_size(u"100000000"), 67108864);
    EXPECT_EQ(split_size(u"99999999999999999999"), 67108864);
    EXPECT_EQ(split_size(u"none"), 262144);
}

TEST(Settings, the_version_moves_with_every_change_and_with_nothing_else) {
    Store store;
    std::uint64_t version = store.settings.version();
    const auto moved = [&] { return std::exchange(version, store.settings.version()) != version; };
    (void)store.settings.number(setting::retries);
    store.settings.refresh();
    EXPECT_FALSE(moved());
    ASSERT_TRUE(store.settings.write(u"S", u"K", u"v").ok());
    EXPECT_TRUE(moved());
    store.settings.override_value(u"S", u"K", u"w");
    EXPECT_TRUE(moved());
    ASSERT_TRUE(store.settings.erase(u"S", u"K").ok());
    EXPECT_TRUE(moved());
    store.backend->changed = true;
    store.settings.refresh();
    EXPECT_TRUE(moved());
    store.backend->fails = true;
    EXPECT_EQ(store.settings.write(u"S", u"K", u"v").fault, FileFault::access);
    EXPECT_EQ(store.settings.erase(u"S", u"K").fault, FileFault::access);
    EXPECT_FALSE(moved());
}

TEST(Settings, without_a_store_say_that_nothing_was_written) {
    Settings settings;
    EXPECT_FALSE(settings.write(u"S", u"K", u"v").ok());
    EXPECT_EQ(settings.text(u"S", u"K", u"standard"), u"standard");
}

TEST(Settings, are_read_while_they_change) {
    Store store;
    std::vector<std::jthread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                const std::int64_t value = store.settings.number(setting::speed_limit);
                ASSERT_TRUE(value == 131072 || value == 5000 || value == 6000);
            }
        });
    }
    for (int i = 0; i < 2000; ++i) {
        store.settings.override_value(u"Connection", u"Speed Limit", i % 2 == 0 ? u"5000" : u"6000");
    }
}

}  // namespace
}  // namespace vantlow
