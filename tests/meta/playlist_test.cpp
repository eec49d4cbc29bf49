// ASX and SMIL playlists.
#include "meta/playlist.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

std::span<const std::byte> bytes_of(const std::string& text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

std::vector<std::string> urls_of(const Playlist& list) {
    std::vector<std::string> urls;
    for (const auto& clip : list.clips) urls.push_back(clip.url);
    return urls;
}

TEST(Playlist, ReadsAsx) {
    const Playlist list = CASXSimple::read(bytes_of(R"(<ASX Version="3.0">
<Title>All</Title><BASE HREF="http://h/dir" />
<Entry><Title>One &amp; two</Title>
  <Ref href="mms://s/one.wmv" /><REF HREF="ftp://s/one.wmv"/><ref HREF = "HTTP://s/one.wmv?a=1&amp;b=2"/>
  <StartTime value="00:01:10.5" /><Duration value="2:30"/></Entry>
<entry><ref href="relative.wmv"/></entry>
<entry><ref href="rtspt://s/three"></ref></entry>
</ASX>)"));
    EXPECT_EQ(list.base, "http://h/dir/");
    EXPECT_EQ(urls_of(list),
              (std::vector<std::string>{"mms://s/one.wmv", "HTTP://s/one.wmv?a=1&b=2", "rtspt://s/three"}));
    EXPECT_EQ(list.clips[0].title, "One & two");
    EXPECT_DOUBLE_EQ(list.clips[0].start, 70.5);
    EXPECT_DOUBLE_EQ(list.clips[0].end, 220.5);
    EXPECT_EQ(list.clips[2].base, "http://h/dir/");
    EXPECT_EQ(list.clips[2].end, 0);
}

TEST(Playlist, ReadsPlainLinesWhereThereAreNoTags) {
    const std::string text =
        "[Reference]\rRef1=http://h/a.asf?x=1&y=2\nRef2=MMS://h/b c.wmv \r\n"
        "<a href=\"http://h/c\">\nx http://h/d'e\nmms://h/f/>\nhttp://h/g<x/>\nrtmp://h/i\n";
    EXPECT_EQ(urls_of(CASXSimple::read(bytes_of(text))),
              (std::vector<std::string>{"http://h/a.asf?x=1", "MMS://h/b c.wmv", "http://h/d"}));
    EXPECT_EQ(
        urls_of(CSMILSimple::read(bytes_of(text))),
        (std::vector<std::string>{"http://h/a.asf?x=1", "MMS://h/b c.wmv", "http://h/d", "rtmp://h/i"}));
    // Of two addresses in a line the scheme's place in the order decides.
    EXPECT_EQ(urls_of(CASXSimple::read(bytes_of("http://h/a mms://h/b"))),
              std::vector<std::string>{"mms://h/b"});
    EXPECT_EQ(urls_of(CSMILSimple::read(bytes_of("mms://h/b http://h/a"))),
              std::vector<std::string>{"http://h/a"});
}

TEST(Playlist, ReadsSmil) {
    const Playlist list = CSMILSimple::read(bytes_of(R"(<smil><head>
<meta name="title" content="T"/><meta name="base" content="rtsp://s/dir/"/></head>
<body><seq><video src="a.rm" clipBegin="10s" clipEnd="1:02:03.25" title="A &lt;1&gt;"/>
<audio SRC="rtsp://other/b.ra" clip-begin="npt=3min"></audio><textstream src="c.rt"/><text src="d.txt"/>
<img src='e.png'/><ref src="f"/><animation src="g.swf"/><region id="no"/><video/><video src="never closed">
<audio src="h"/></seq></body></smil>)"));
    EXPECT_EQ(list.base, "rtsp://s/dir/");
    EXPECT_EQ(urls_of(list), (std::vector<std::string>{"a.rm", "rtsp://other/b.ra", "c.rt", "d.txt", "e.png",
                                                       "f", "g.swf", "h"}));
    EXPECT_EQ(list.clips[0].title, "A <1>");
    EXPECT_DOUBLE_EQ(list.clips[0].start, 10);
    EXPECT_DOUBLE_EQ(list.clips[0].end, 3723.25);
    EXPECT_DOUBLE_EQ(list.clips[1].start, 180);
    const Playlist plain =
        CSMILSimple::read(bytes_of("<SMIL><HEAD><META BASE=\"http://b/\"></META></HEAD></SMIL>"));
    EXPECT_EQ(plain.base, "http://b/");
    EXPECT_TRUE(plain.clips.empty());
}

TEST(Playlist, UnclosedElementsCostOnePass) {
    std::string text = "<smil><body>";
    for (int i = 0; i < 300'000; ++i) text += "<video src=\"x\"><audio src=\"y\">";
    EXPECT_TRUE(CSMILSimple::read(bytes_of(text + "</body></smil>")).clips.empty());
    text = "<smil><body>";
    for (int i = 0; i < 1'500'000; ++i) text += "<ref";
    EXPECT_TRUE(CSMILSimple::read(bytes_of(text + "</body></smil>")).clips.empty());
}

TEST(Playlist, ReadsClockValues) {
    for (const auto& [text, seconds] : {std::pair<std::string, double>{"1:02:03", 3723.0},
                                        {"02:03", 123.0},
                                        {"00:00:01.5", 1.5},
                                        {"12.5s", 12.5},
                                        {"3min", 180.0},
                                        {"1h", 3600.0},
                                        {"500ms", 0.5},
                                        {" 7 ", 7.0},
                                        {"npt=1.25s", 1.25},
                                        {"smpte=00:00:01", 0.0},
                                        {"", 0.0},
                                        {"x", 0.0},
                                        {"5 days", 0.0},
                                        {"1:2:3:4", 3723.0},
                                        {"1:", 0.0},
                                        {std::string(400, '1'), 0.0},
                                        {"999999999999999h", 999'999'999'999'999.0 * 3600},
                                        {"1:2:x", 62.0}}) {
        EXPECT_DOUBLE_EQ(clock_seconds(text), seconds) << text;
    }
}

}  // namespace
}  // namespace vantlow
