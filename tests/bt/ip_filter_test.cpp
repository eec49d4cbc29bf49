// The lists of addresses that are no peers: their lines, and the files they stand in.
#include <gtest/gtest.h>

#include "base/codes.h"
#include "base/text.h"
#include "bt/ip_filter_keeper.h"
#include "bt/torrent_settings.h"
#include "platform/process.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

IpFilter filter_of(std::string_view list, std::size_t portion = 4096) {
    IpFilterReader reader;
    for (; !list.empty(); list.remove_prefix(std::min(portion, list.size())))
        reader.feed(list.substr(0, portion));
    return reader.finish();
}

bool blocks(const IpFilter& filter, std::string_view address) {
    return filter.blocks(*SocketAddress::from_literal(address, 6881));
}

TEST(IpFilterTest, ReadsTheLinesOfEveryKindOfList) {
    const struct {
        std::string_view line;
        std::string_view first, last;     ///< blocked, as is what lies between; empty: nothing is
        std::string_view before, behind;  ///< not blocked
        bool is_bad = false;
    } rows[] = {
        {"001.009.096.105 - 001.009.096.108 , 000 , Some, one", "1.9.96.105", "1.9.96.108", "1.9.96.104",
         "1.9.96.109"},
        {"1.2.3.0-1.2.3.255,127,x", "1.2.3.0", "1.2.3.255", "1.2.2.255", "1.2.4.0"},
        {"1.2.3.0 - 1.2.3.255 , 128 , harmless", "", "", "1.2.3.0", "1.2.3.255"},
        {"Bad: Corp - 7, a:1.2.3.4-1.2.3.6", "1.2.3.4", "1.2.3.6", "1.2.3.3", "1.2.3.7"},
        {"9.9.9.9 Inc:1.2.3.4 - 1.2.3.4\r", "1.2.3.4", "1.2.3.4", "9.9.9.9", "1.2.3.5"},
        {"10.1.2.3/8 # all of it", "10.0.0.0", "10.255.255.255", "9.255.255.255", "11.0.0.0"},
        {"0.0.0.0/0", "0.0.0.0", "255.255.255.255", "::1", "2001:db8::"},
        {"255.255.255.255/32", "255.255.255.255", "255.255.255.255", "255.255.255.254", "0.0.0.0"},
        {" 1.2.3.4 ; one", "1.2.3.4", "1.2.3.4", "1.2.3.3", "1.2.3.5"},
        {"2001:DB8::10 - 2001:db8::1f , 5 , six", "2001:db8::10", "2001:db8::1f", "2001:db8::f",
         "2001:db8::20"},
        {"2001:db8:ffff::/47", "2001:db8:fffe::", "2001:db8:ffff:ffff:ffff:ffff:ffff:ffff",
         "2001:db8:fffd:ffff::", "2001:db9::"},
        {"Name: of six:2001:db8::1-2001:db8::2", "2001:db8::1", "2001:db8::2", "2001:db8::", "2001:db8::3"},
        {"::ffff:1.2.3.4", "::ffff:1.2.3.4", "::ffff:1.2.3.4", "1.2.3.4", "::ffff:1.2.3.5"},
        {"# 1.2.3.4", "", "", "1.2.3.4", "1.2.3.4"},
        {"; 1.2.3.4", "", "", "1.2.3.4", "1.2.3.4"},
        {"//1.2.3.4", "", "", "1.2.3.4", "1.2.3.4"},
        {"\t", "", "", "1.2.3.4", "1.2.3.4"},
        {"1.2.3.5 - 1.2.3.4 , 0 , turned", "", "", "1.2.3.4", "1.2.3.5", true},
        {"1.2.3.4 - ::5", "", "", "1.2.3.4", "::5", true},
        {"1.2.3.256", "", "", "1.2.3.4", "1.2.3.25", true},
        {"1.2.3/24", "", "", "1.2.3.0", "1.2.0.3", true},
        {"1.2.3.4/33", "", "", "1.2.3.4", "1.2.3.4", true},
        {"1.2.3.4 5.6.7.8", "", "", "1.2.3.4", "5.6.7.8", true},
        {"host.example", "", "", "1.2.3.4", "::1", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const IpFilter filter = filter_of(row.line);
        EXPECT_EQ(filter.ranges(), row.first.empty() ? 0U : 1U);
        for (const std::string_view in : {row.first, row.last})
            EXPECT_TRUE(in.empty() || blocks(filter, in)) << in;
        for (const std::string_view out : {row.before, row.behind}) EXPECT_FALSE(blocks(filter, out)) << out;
        EXPECT_EQ(filter.reading().bad_lines, row.is_bad ? 1U : 0U);
    }
}

TEST(IpFilterTest, JoinsRangesAndCountsWhatIsNoneHoweverItsBytesAreDivided) {
    const std::string list =
        "\xEF\xBB\xBF"
        "5.0.0.0-5.0.0.9\n5.0.0.5-5.0.0.20\r\n5.0.0.21\nwhat\n1.0.0.0/8\n" +
        std::string(IpFilterReader::longest_line + 1, '1') +
        "\n::2\n::1\n5.0.0.23\n255.255.255.0/24\n0.0.0.0\n7.7.7.7";
    for (const std::size_t portion : {1U, 7U, 4096U, 100'000U}) {
        const IpFilter filter = filter_of(list, portion);
        EXPECT_EQ(filter.ranges(), 7U);  // the two ends of all addresses do not touch
        for (const char* const in : {"5.0.0.0", "5.0.0.21", "5.0.0.23", "::1", "::2", "7.7.7.7", "0.0.0.0"})
            EXPECT_TRUE(blocks(filter, in)) << in;
        for (const char* const out : {"5.0.0.22", "4.255.255.255", "::3", "8.0.0.0"})
            EXPECT_FALSE(blocks(filter, out)) << out;
        EXPECT_EQ(filter.reading().bad_lines, 2U);
        EXPECT_EQ(filter.reading().first_bad, 4U);
    }
}

TEST(IpFilterTest, TheKeeperFollowsItsFilesAndItsSettings) {
    test::TempFolder folder;
    Settings settings;
    ThreadPool threads;
    const LibraryTables libraries = load_libraries(folder_of(program_path()));
    IpFilterKeeper keeper(settings, libraries.ssh, threads, folder.path(), std::chrono::milliseconds(10));
    EXPECT_EQ(keeper.current(), nullptr);
    const auto until = [&](const auto& holds) {
        const auto end = Clock::now() + std::chrono::seconds(20);
        while (!holds(keeper.current()) && Clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return holds(keeper.current());
    };
    const auto has = [](const char* address) {
        return [address](const auto& filter) { return filter && blocks(*filter, address); };
    };
    folder.write(u"ipfilter.dat", "1.2.3.4\n");
    EXPECT_TRUE(until(has("1.2.3.4")));
    const auto packed = from_hex("1f8b08000000000002033334d00341432e00ac3af75b09000000").value();
    folder.write(u"ipfilter.dat", std::string(reinterpret_cast<const char*>(packed.data()), packed.size()));
    EXPECT_TRUE(until(has("10.0.0.1")));
    EXPECT_FALSE(has("1.2.3.4")(keeper.current()));
    // Cut short: it counts as far as it goes, and somebody is told.
    folder.write(u"ipfilter.dat",
                 std::string(reinterpret_cast<const char*>(packed.data()), packed.size() - 8));
    EXPECT_TRUE(until([](const auto& filter) { return filter && !filter->reading().failure.empty(); }));
    settings.override_value(setting::ip_filter_file.section, setting::ip_filter_file.key,
                            folder.write(u"more.p2p", "x:6.6.6.6-6.6.6.7\n"));
    EXPECT_TRUE(until(has("6.6.6.7")));
    settings.override_value(setting::ip_filter.section, setting::ip_filter.key, u"0");
    EXPECT_TRUE(until([](const auto& filter) { return filter == nullptr; }));
}

}  // namespace
}  // namespace vantlow
