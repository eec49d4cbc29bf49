#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "media/amf0.h"
#include "media/big_endian.h"
#include "media/combine.h"
#include "media/flv_tag.h"
#include "media/video_size.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using namespace std::string_literals;
using test::TempFolder;

const std::string head = "FLV\x01\x05\x00\x00\x00\x09\x00\x00\x00\x00"s;

std::string text_of(const CQoMemFile& stream) {
    return {reinterpret_cast<const char*>(stream.bytes().data()), stream.size()};
}

std::string tag(std::uint8_t type, std::uint32_t time, const std::string& data) {
    CQoMemFile stream;
    put_big(stream, type, 1);
    put_big(stream, data.size(), 3);
    put_big(stream, time, 3);
    put_big(stream, time >> 24U, 1);
    put_big(stream, 0, 3);
    stream.write(std::as_bytes(std::span(data)));
    put_big(stream, data.size() + 11, 4);
    return text_of(stream);
}

std::string metadata(std::vector<std::pair<std::string, double>> numbers, bool keyframes = false) {
    CQoMemFile stream;
    CAMF0::WriteString(stream, std::string_view("onMetaData"));
    stream.write_u8(amf::mixed_array);
    put_big(stream, numbers.size(), 4);
    for (const auto& [name, value] : numbers) {
        CAMF0::WriteString(stream, name, false);
        CAMF0::WriteNumber(stream, value);
    }
    if (keyframes) {
        CAMF0::WriteString(stream, "keyframes", false);
        stream.write_u8(amf::object);
        CAMF0::WriteObjectEnd(stream);
    }
    CAMF0::WriteObjectEnd(stream);
    return tag(flv::script, 0, text_of(stream));
}

const std::string key = "\x17\x01\x00\x00\x00"s;
const std::string inter = "\x27\x01\x00\x00\x00"s;
const std::string config = "\x17\x00\x00\x00\x00"s;

struct Joined {
    CombineOutcome outcome;
    std::vector<std::uint32_t> progress;
};

class FlvJoin : public testing::Test {
  protected:
    Joined join(const std::vector<std::string>& pieces) {
        CombineJob job;
        job.output = folder_.path(u"out.flv");
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            const std::u16string name =
                u"piece" + std::u16string(1, static_cast<char16_t>(u'1' + i)) + u".flv";
            job.pieces.push_back(pieces[i] == "absent" ? folder_.path(u"absent.flv")
                                                       : folder_.write(name, pieces[i]));
        }
        Joined joined;
        CombineControl control([&](std::uint32_t message, std::uint32_t value) {
            EXPECT_EQ(message, 1026U);
            joined.progress.push_back(value);
        });
        joined.outcome = combine_media(job, control);
        return joined;
    }
    std::string out() const { return folder_.read(u"out.flv"); }

    TempFolder folder_{TempFolder::Name::foreign};
};

TEST_F(FlvJoin, MovesTagsByTheDeclaredDurations) {
    const std::string audio(300, 'a');
    const auto joined = join({
        head + metadata({{"duration", 60}, {"width", 320}}) + tag(9, 0, key) + tag(8, 5, audio) +
            tag(15, 7, "other"),
        head + metadata({{"duration", 30}}) + tag(9, 0, key) +
            tag(18, 3,
                "\x02\x00\x03"
                "cue"s) +
            tag(8, 0x00FFFFF0 - 60000 + 100, audio),
        head + tag(9, 0, inter),  // no duration: what follows begins at the same time
        head + metadata({{"duration", 1.5}}) + tag(9, 10, inter),
    });
    ASSERT_TRUE(joined.outcome.result.ok()) << joined.outcome.result.message();
    EXPECT_EQ(out(), head + metadata({{"duration", 91.5}, {"width", 320}}) + tag(9, 0, key) +
                         tag(8, 5, audio) + tag(9, 60000, key) + tag(8, 0x01000054, audio) +
                         tag(9, 90000, inter) + tag(9, 90010, inter));
    EXPECT_EQ(joined.outcome.bytes, static_cast<std::int64_t>(out().size()));
}

TEST_F(FlvJoin, RebuildsTheIndexWhateverSizeItBecomes) {
    const std::vector<std::pair<std::string, double>> numbers = {{"duration", 2},
                                                                 {"filesize", 1},
                                                                 {"lasttimestamp", 1},
                                                                 {"lastkeyframetimestamp", 1},
                                                                 {"lastkeyframelocation", 1}};
    const auto joined =
        join({head + metadata(numbers, true) + tag(9, 0, config) + tag(9, 0, key) + tag(9, 40, inter),
              head + metadata(numbers, true) + tag(9, 0, key) + tag(8, 50, "sound")});
    ASSERT_TRUE(joined.outcome.result.ok());
    const std::string film = out();
    const std::string media =
        tag(9, 0, config) + tag(9, 0, key) + tag(9, 40, inter) + tag(9, 2000, key) + tag(8, 2050, "sound");
    ASSERT_TRUE(film.ends_with(media)) << "no tag is lost";
    const auto* bytes = reinterpret_cast<const std::byte*>(film.data());
    const std::size_t start = film.size() - media.size();
    const FlvTag script = read_flv_tag(bytes + 13);
    ASSERT_EQ(13U + static_cast<std::size_t>(script.whole_size()), start)
        << "the tag's size leads to the next tag";
    EXPECT_EQ(load_u32(bytes + start - 4), script.data_size + 11) << "and the back-pointer to its beginning";
    CAMF0 body;
    ASSERT_TRUE(body.Parse(bytes + 24, script.data_size));
    const auto number = [&body](std::u16string_view name) {
        AmfFound found;
        return body.GetValue(name, found, amf::number) ? std::get<double>(found) : -1;
    };
    const double first = static_cast<double>(start + tag(9, 0, config).size());
    const double second =
        static_cast<double>(film.size() - tag(9, 0, key).size() - tag(8, 0, "sound").size());
    EXPECT_EQ(number(u"duration"), 4);
    EXPECT_EQ(number(u"filesize"), static_cast<double>(film.size()));
    EXPECT_EQ(number(u"lasttimestamp"), 2.05);
    EXPECT_EQ(number(u"lastkeyframetimestamp"), 2);
    EXPECT_EQ(number(u"lastkeyframelocation"), second);
    std::vector<std::u16string> names;
    std::vector<std::u16string> texts;
    AmfFound found;
    ASSERT_TRUE(body.GetValue(u"keyframes", found));
    std::get<CAMFBase*>(found)->ListEntries(0, names, texts);
    const auto shown = [](double value) {
        CAMFNumber text;
        text.value = value;
        return text.ToString();
    };
    EXPECT_EQ(texts, (std::vector<std::u16string>{u"", shown(first), shown(second), u"", u"0", u"2"}));
}

TEST_F(FlvJoin, TakesWhatIsWholeAndSaysWhatIsNot) {
    const std::string whole = head + metadata({{"duration", 1}}) + tag(9, 0, key);
    const auto joined =
        join({whole + tag(8, 1, "cut").substr(0, 15), "absent", "FLV", head + tag(8, 2, "last")});
    ASSERT_TRUE(joined.outcome.result.ok());
    EXPECT_EQ(out(), head + metadata({{"duration", 1}}) + tag(9, 0, key) + tag(8, 1002, "last"));
    ASSERT_EQ(joined.outcome.notes.size(), 3U);
    EXPECT_NE(joined.outcome.notes[0].find("piece1.flv"), std::string::npos);
    EXPECT_NE(joined.outcome.notes[0].find("offset " + std::to_string(whole.size())), std::string::npos);
    EXPECT_EQ(joined.outcome.skipped, 1U);
}

TEST_F(FlvJoin, LeavesNoOutputWhereItFails) {
    const std::string good = head + metadata({{"duration", 1}}) + tag(9, 0, key);
    for (const std::vector<std::string>& pieces : std::vector<std::vector<std::string>>{
             {good, "<html>not found</html>"}, {"absent", good}, {"", good}, {"FLV", good}}) {
        const auto joined = join(pieces);
        EXPECT_FALSE(joined.outcome.result.ok());
        EXPECT_NE(joined.outcome.result.message().find(".flv"), std::string::npos);
        EXPECT_FALSE(folder_.has(u"out.flv") || folder_.has(u"out.flv.joining"));
    }
}

TEST_F(FlvJoin, WritesNoneOfItsPieces) {
    const std::string film = head + metadata({{"duration", 1}}) + tag(9, 0, key);
    for (const std::u16string name : {u"out.flv", u"out.flv.joining"}) {
        const CombineJob job{{folder_.write(u"piece1.flv", film), folder_.write(name, film)},
                             folder_.path(u"out.flv")};
        CombineControl control({});
        EXPECT_EQ(combine_media(job, control).result.code, Code::local_file);
        EXPECT_EQ(folder_.read(name), film);
        ASSERT_TRUE(remove_file(folder_.path(name)).ok());
    }
}

TEST_F(FlvJoin, ThePictureSizeIsCorrectedInPlace) {
    const auto film = [](double width, double height) {
        return head + tag(8, 0, "s") + metadata({{"duration", 1}, {"width", width}, {"height", height}}) +
               tag(9, 0, key);
    };
    const auto path = folder_.write(u"film.flv", film(640, -5));
    EXPECT_EQ(*read_video_size(path), (VideoSize{640, 0}));
    EXPECT_FALSE(write_video_size(path, {0, 480}).ok());
    EXPECT_EQ(folder_.read(u"film.flv"), film(640, -5));
    EXPECT_TRUE(write_video_size(path, {854, 480}).ok());
    EXPECT_EQ(folder_.read(u"film.flv"), film(854, 480));
    const std::string without[] = {head + tag(9, 0, key), head + metadata({{"width", 3}}), "no film"};
    for (const std::string& bytes : without) {
        const auto other = folder_.write(u"other.flv", bytes);
        EXPECT_FALSE(read_video_size(other).ok());
        EXPECT_FALSE(write_video_size(other, {854, 480}).ok());
        EXPECT_EQ(folder_.read(u"other.flv"), bytes);
    }
}

TEST_F(FlvJoin, TellsProgressInStepsAndStopsWhenCancelled) {
    std::string piece = head + metadata({{"duration", 1}});
    for (std::uint32_t i = 0; i < 2000; ++i) piece += tag(8, i, std::string(1000, 's'));
    // A tag longer than any buffer.
    piece += tag(9, 2000, key + std::string(3'000'000, 'v'));
    const auto joined = join({piece, piece});
    ASSERT_TRUE(joined.outcome.result.ok());
    EXPECT_EQ(out().size(), 2 * piece.size() - head.size() - metadata({{"duration", 1}}).size());
    ASSERT_GT(joined.progress.size(), 10U);
    EXPECT_EQ(joined.progress.back(), 10'000U);
    for (std::size_t i = 1; i + 1 < joined.progress.size(); ++i) {
        EXPECT_GE(joined.progress[i], joined.progress[i - 1] + 50);
    }

    CombineControl* running = nullptr;
    std::uint32_t told = 0;
    CombineControl control([&](std::uint32_t, std::uint32_t value) {
        told = value;
        running->cancel();
    });
    running = &control;
    CombineJob job{{folder_.path(u"piece1.flv"), folder_.path(u"piece2.flv")}, folder_.path(u"stopped.flv")};
    EXPECT_EQ(combine_media(job, control).result.code, Code::stopped);
    EXPECT_LT(told, 100U) << "it went on";
    EXPECT_FALSE(folder_.has(u"stopped.flv") || folder_.has(u"stopped.flv.joining"));
}

}  // namespace
}  // namespace vantlow
