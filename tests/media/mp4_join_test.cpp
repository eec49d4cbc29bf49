#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "media/big_endian.h"
#include "media/combine.h"
#include "media/media_input.h"
#include "media/mp4_samples.h"
#include "media/sample_mp4.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using test::make_mp4;
using test::SampleTrack;
using test::TempFolder;

// What a file's tracks hold, sample by sample.
struct Read {
    std::string data;
    std::int64_t time;
    std::int64_t shown;
    bool sync;
    std::uint32_t description;
    bool operator==(const Read&) const = default;
};

class Collector : public SampleSink {
  public:
    Collector(const MediaInput& input, std::size_t count) : tracks(count), input_(input) {}
    bool take(std::size_t track, const SampleRun& run) override {
        for (std::uint32_t i = 0; i < run.count; ++i) {
            std::string data(run.size, '\0');
            EXPECT_TRUE(input_.read(run.offset + std::int64_t{run.size} * i,
                                    std::as_writable_bytes(std::span(data))));
            const std::int64_t time = run.decode_time + std::int64_t{run.duration} * i;
            tracks[track].push_back({data, time, time + run.composition, run.sync, run.description});
            end = std::max(end, time + run.duration);
        }
        return true;
    }
    std::vector<std::vector<Read>> tracks;
    std::int64_t end = 0;

  private:
    const MediaInput& input_;
};

std::vector<SampleTrack::Sample> samples(std::string_view letters, std::uint32_t duration) {
    std::vector<SampleTrack::Sample> list;
    for (std::size_t i = 0; i < letters.size(); ++i) {
        list.push_back({std::string(i % 3 + 1, letters[i]), duration, 0, true});
    }
    return list;
}

// The film with other bytes in place of a box, which stands in these.
std::string replaced(std::string film, std::string_view type, std::string_view by,
                     const std::vector<std::string_view>& parents) {
    const auto number = [&film](std::size_t at) { return reinterpret_cast<std::byte*>(film.data()) + at; };
    const std::size_t at = film.find(type) - 4;
    const std::uint32_t old_size = load_u32(number(at));
    film.replace(at, old_size, by);
    for (const std::string_view parent : parents) {
        const std::size_t place = film.find(parent) - 4;
        store_big(number(place), load_u32(number(place)) + by.size() - old_size, 4);
    }
    return film;
}

// A header of version 1 in a box with a size of 64 bits, so many bytes long.
std::string long_header(std::string_view type, std::size_t length) {
    BoxBuilder box;
    box.put(1, 4);
    box.put(fourcc(type), 4);
    box.put(16 + length, 8);
    box.put(1, 1);
    for (std::size_t at = 1; at < length; ++at) box.put(at == 22 ? 1 : 0, 1);  // time scale or track number
    return {reinterpret_cast<const char*>(box.bytes().data()), box.bytes().size()};
}

class Mp4Join : public testing::Test {
  protected:
    CombineOutcome join(const std::vector<std::string>& pieces) {
        CombineJob job;
        job.output = folder_.path(u"out.mp4");
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            job.pieces.push_back(folder_.write(
                u"p" + std::u16string(1, static_cast<char16_t>(u'1' + i)) + u".mp4", pieces[i]));
        }
        CombineControl control({});
        return combine_media(job, control);
    }
    // Joins and reads what came out.
    std::vector<std::vector<Read>> joined(const std::vector<std::string>& pieces) {
        outcome_ = join(pieces);
        EXPECT_TRUE(outcome_.result.ok()) << outcome_.result.message();
        MediaInput input;
        EXPECT_TRUE(input.open(folder_.path(u"out.mp4")).ok());
        auto piece = read_mp4_piece(input);
        if (!piece) throw std::runtime_error(piece.failure().message());
        piece_ = *std::move(piece);
        Collector collector(input, piece_.tracks.size());
        EXPECT_TRUE(walk_samples(input, piece_, collector).ok());
        return std::move(collector.tracks);
    }

    TempFolder folder_{TempFolder::Name::foreign};
    CombineOutcome outcome_;
    Mp4Piece piece_;
};

TEST_F(Mp4Join, TracksStayInStepWhateverThePiecesLookLike) {
    SampleTrack video{"vide", 1000, samples("abcde", 40)};
    for (std::size_t i = 1; i < 5; ++i) video.samples[i].sync = false;
    video.samples[1].composition = 40;
    video.samples[2].composition = -40;
    SampleTrack sound{"soun", 8000, samples("ABCDEFGHI", 200), {}, "test",
                      "c",    3};  // 225 ms: longer than the picture
    SampleTrack other_video{"vide", 600, samples("vwx", 20)};
    const SampleTrack other_sound{"soun", 8000, samples("XY", 160), {}, "test", "c", 1};
    for (const bool first_fragmented : {false, true}) {
        for (const bool second_fragmented : {false, true}) {
            // A later part of a broadcast: where its times begin does not matter.
            other_video.begin = second_fragmented ? 6000 : 0;
            SampleTrack later = other_sound;
            later.begin = second_fragmented ? 80000 : 0;
            const auto tracks = joined({make_mp4({video, sound}, first_fragmented),
                                        make_mp4({later, other_video}, second_fragmented)});
            ASSERT_EQ(tracks.size(), 2U);
            EXPECT_EQ(piece_.tracks[0].timescale, 3000U) << "exact for both";
            EXPECT_EQ(tracks[0], (std::vector<Read>{{"a", 0, 0, true, 0},
                                                    {"bb", 120, 240, false, 0},
                                                    {"ccc", 240, 120, false, 0},
                                                    {"d", 360, 360, false, 0},
                                                    {"ee", 480, 480, false, 0},
                                                    {"v", 675, 675, true, 0},  // 225 ms, with the sound
                                                    {"ww", 775, 775, true, 0},
                                                    {"xxx", 875, 875, true, 0}}));
            ASSERT_EQ(tracks[1].size(), 11U);
            EXPECT_EQ(tracks[1][8], (Read{"III", 1600, 1600, true, 0}));
            EXPECT_EQ(tracks[1][9], (Read{"X", 1800, 1800, true, 0}));
            EXPECT_NEAR(outcome_.seconds, 0.325, 1e-6);
            const std::string film = folder_.read(u"out.mp4");
            EXPECT_LT(film.find("moov"), film.find("mdat"));
            EXPECT_NE(film.find("M4V mp42isom"), std::string::npos);
            EXPECT_EQ(film.find("junk"), std::string::npos) << "bytes that no track uses";
        }
    }
}

TEST_F(Mp4Join, EditsAreKeptWhereTheyHideSomething) {
    // Two ticks of priming: as any coder of sound has it. The first piece's hides it.
    SampleTrack sound{"soun", 1000, samples("ABCDEF", 10), {{58, 2}}};
    auto tracks = joined({make_mp4({sound}), make_mp4({sound})});
    ASSERT_EQ(piece_.tracks[0].edits.size(), 1U);
    EXPECT_EQ(piece_.tracks[0].edits[0].media_time, 2);
    EXPECT_EQ(piece_.tracks[0].edits[0].duration, 118);
    EXPECT_EQ(tracks[0][6].time, 60);

    // Pictures that somebody cut off stay hidden, and what is shown joins without a gap.
    SampleTrack cut{"vide", 1000, samples("abcdef", 10), {{25, 30}}};
    SampleTrack whole{"vide", 1000, samples("uvw", 10)};
    tracks = joined({make_mp4({whole}), make_mp4({cut}), make_mp4({whole})});
    std::vector<std::pair<std::int64_t, std::int64_t>> edits;
    for (const Mp4Edit& edit : piece_.tracks[0].edits) edits.emplace_back(edit.duration, edit.media_time);
    EXPECT_EQ(edits, (std::vector<std::pair<std::int64_t, std::int64_t>>{{30, 0}, {25, 60}, {30, 90}}));
    EXPECT_EQ(tracks[0].size(), 12U);

    // A track that begins later, one that only a later piece has, one that a piece lacks.
    SampleTrack late{"soun", 1000, samples("AB", 10), {{5, -1}, {20, 0}}};
    tracks = joined({make_mp4({whole}), make_mp4({whole, late}), make_mp4({whole})});
    ASSERT_EQ(piece_.tracks[1].edits.size(), 2U);
    EXPECT_EQ(piece_.tracks[1].edits[0].media_time, -1);
    EXPECT_EQ(piece_.tracks[1].edits[0].duration, 35);
    EXPECT_EQ(tracks[0].size(), 9U);
    EXPECT_NEAR(outcome_.seconds, 0.090, 1e-6);
}

// Counted in the first piece's ticks, a sample of the second is shown later than a table can say.
TEST_F(Mp4Join, ADelayThatNoTableCanSayIsRefused) {
    const SampleTrack fine{"vide", 24'000'000, samples("ab", 24'000'000)};
    SampleTrack coarse{"vide", 1000, samples("cd", 1000)};
    coarse.samples[1].composition = 80'000;
    joined({make_mp4({fine}), make_mp4({coarse})});
    EXPECT_NEAR(outcome_.seconds, 84, 0.001);
    coarse.samples[1].composition = 100'000;
    const CombineOutcome refused = join({make_mp4({fine}), make_mp4({coarse})});
    EXPECT_EQ(refused.result.code, Code::unsupported);
    EXPECT_NE(refused.result.message().find("too different"), std::string::npos) << refused.result.message();
}

TEST_F(Mp4Join, DescriptionsOfAnotherConfigurationAreAddedOfAnotherCodecRefused) {
    const auto piece = [](std::string format, std::string configuration) {
        return make_mp4({{"vide", 1000, samples("ab", 40), {}, std::move(format), std::move(configuration)}});
    };
    const auto with_rate = [](char rate) {
        return std::string(
                   "c\0\0\0\x14"
                   "btrt",
                   9) +
               std::string(11, '\0') + rate;
    };
    auto tracks =
        joined({piece("avc1", "one"), piece("avc1", "two"), piece("avc3", "one"), piece("avc1", "one")});
    std::vector<std::uint32_t> used;
    for (const Read& sample : tracks[0]) used.push_back(sample.description);
    EXPECT_EQ(used, (std::vector<std::uint32_t>{0, 0, 1, 1, 2, 2, 0, 0}));
    joined({piece("avc1", with_rate('\x05')), piece("avc1", with_rate('\x09')),
            piece("avc1", with_rate('\x01'))});
    ASSERT_EQ(piece_.tracks[0].descriptions.size(), 1U) << "a bit rate is no other configuration";
    EXPECT_EQ(piece_.tracks[0].descriptions[0].back(), std::byte{9});
    // One that reaches "up to the end" reaches no further where others follow it.
    std::string last = piece("avc1", "one");
    last.replace(last.find("avc1") - 4, 4, 4, '\0');
    tracks = joined({last, piece("avc1", "two")});
    EXPECT_EQ(tracks[0].back().description, 1U);

    const CombineOutcome refused = join({piece("avc1", "one"), piece("hvc1", "one")});
    EXPECT_NE(refused.result.message().find("p2.mp4: the video is hvc1, that of the pieces before is avc1"),
              std::string::npos);
    EXPECT_FALSE(folder_.has(u"out.mp4.joining"));
}

TEST_F(Mp4Join, DamagedPiecesAreNamed) {
    const std::string good = make_mp4({{"vide", 1000, samples("abcd", 40)}});
    const auto changed_in = [](std::string bytes, std::string_view box, std::size_t at, std::uint64_t value) {
        store_big(reinterpret_cast<std::byte*>(bytes.data()) + bytes.find(box) + 4 + at, value, 4);
        return bytes;
    };
    const auto changed = [&](std::string_view box, std::size_t at, std::uint64_t value) {
        return changed_in(good, box, at, value);
    };
    // A run that tells nothing of its samples: they are empty. No track alone has too many of them.
    const std::string fragments =
        make_mp4({{"vide", 1000, samples("abcd", 40)}, {"soun", 8000, samples("ABCD", 160)}}, true);
    const auto with_empty_samples = [&](std::uint64_t count) {
        return changed_in(changed_in(fragments, "trun", 0, 0), "trun", 4, count);
    };
    ASSERT_TRUE(join({with_empty_samples(60'000)}).result.ok());
    ASSERT_TRUE(remove_file(folder_.path(u"out.mp4")).ok());
    const auto with_long_header = [&good](std::string_view type, std::size_t length,
                                          const std::vector<std::string_view>& parents) {
        return replaced(good, type, long_header(type, length), parents);
    };
    ASSERT_TRUE(join({with_long_header("mvhd", 112, {"moov"})}).result.ok());
    ASSERT_TRUE(join({with_long_header("tkhd", 96, {"moov", "trak"})}).result.ok());
    ASSERT_TRUE(remove_file(folder_.path(u"out.mp4")).ok());
    std::string entries;
    for (int i = 0; i < 1001; ++i) entries += good.substr(good.find("test") - 4, 17);
    // Together they last for a multiple of 2^64 ticks.
    BoxBuilder edits;
    edits.begin_full("elst", 1, 0);
    edits.put(16, 4);
    for (int i = 0; i < 16; ++i) {
        edits.put(std::uint64_t{1} << 60U, 8);
        edits.put(static_cast<std::uint64_t>(-1), 8);
        edits.put(0x10000, 4);
    }
    edits.end();
    const std::string_view pauses(reinterpret_cast<const char*>(edits.bytes().data()), edits.bytes().size());
    const std::pair<std::string, std::string> cases[] = {
        {with_long_header("mvhd", 104, {"moov"}), "a movie header that is too short"},
        {with_long_header("tkhd", 88, {"moov", "trak"}), "a track header that is too short"},
        {with_long_header("mdhd", 28, {"moov", "trak", "mdia"}), "a media header that is too short"},
        {replaced(good, "test", entries, {"moov", "trak", "mdia", "minf", "stbl", "stsd"}),
         "too many sample descriptions"},
        {replaced(make_mp4({{"vide", 1000, samples("abcd", 40), {{30, 0}}}}), "elst", pauses,
                  {"moov", "trak", "edts"}),
         "impossible times"},
        {good.substr(0, good.size() - 1), "\"moov\" extends beyond"},
        {good.substr(0, good.find("moov") - 4), "no movie box"},
        {"    ftyp nothing", "is not a box"},
        {changed("stco", 8, 0x7FFFFFFF), "beyond the end of the file"},
        {changed("stco", 4, 0xFFFFFFFF), "shorter than it says"},
        {changed("stco", 4, 1), "more samples than its chunks hold"},
        {changed("stsz", 8, 0x10000000), "shorter than it says"},
        {changed("stsz", 4, 0x10000000), "beyond the end of the file"},
        {changed("stsc", 16, 7), "whose description is missing"},
        {changed("stsc", 12, 0), "more samples than its chunks hold"},
        {with_empty_samples(65'533), "more samples than the file can hold"},
        {changed("mdhd", 12, 0), "impossible time scale"},
        {changed("test", static_cast<std::size_t>(-4), fourcc("encv")), "encrypted"},
    };
    for (const auto& [bytes, text] : cases) {
        const CombineOutcome outcome = join({good, bytes});
        EXPECT_FALSE(outcome.result.ok()) << text;
        EXPECT_NE(outcome.result.message().find(text), std::string::npos)
            << text << ": " << outcome.result.message();
        EXPECT_NE(outcome.result.message().find("p2.mp4"), std::string::npos);
        EXPECT_NE(outcome.result.message().find("offset "), std::string::npos);
        EXPECT_FALSE(folder_.has(u"out.mp4") || folder_.has(u"out.mp4.joining"));
    }
}

// Nothing that a broken piece says makes the program crash, wait or fill the disk.
TEST_F(Mp4Join, EveryBrokenByteIsCopedWith) {
    const SampleTrack video{"vide", 1000, samples("abcdef", 40), {{200, 40}}};
    const SampleTrack sound{"soun", 8000, samples("ABCDE", 160)};
    for (const bool fragmented : {false, true}) {
        const std::string good = make_mp4({video, sound}, fragmented);
        int joined = 0;
        for (std::size_t at = 0; at < good.size(); at += 2) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(at % 3 == 0 ? 0xFF : at % 3 == 1 ? 0x7F : bytes[at] ^ 1);
            const CombineOutcome outcome = join({bytes});
            joined += outcome.result.ok() ? 1 : 0;
            EXPECT_LT(outcome.bytes, 100'000) << at;
        }
        EXPECT_GT(joined, 100) << "most bytes are harmless";
        EXPECT_LT(joined, static_cast<int>(good.size() / 2) - 100) << "some are not";
    }
}

TEST(MediaRanges, StayFewAndLeadToTheRightPlace) {
    MediaRanges two;
    two.add(100, 200);
    two.add(0, 50);
    two.add(200, 260);
    two.add(40, 60);
    two.close();
    ASSERT_EQ(two.ranges().size(), 2U);
    EXPECT_EQ(two.size(), 220);
    EXPECT_EQ(two.target_of(100), 60);
    EXPECT_EQ(two.target_of(59), 59);
    EXPECT_EQ(two.target_of(259), 219);

    // One track's chunks, then those that stand between them: nothing is lost where there is only room for
    // few.
    MediaRanges many(64);
    for (std::int64_t i = 0; i < 10'000; ++i) many.add(i * 1000, i * 1000 + 900);
    for (std::int64_t i = 0; i < 5'000; ++i) many.add(i * 1000 + 900, i * 1000 + 1000);
    many.close();
    EXPECT_LE(many.ranges().size(), 64U);
    for (std::int64_t i = 1; i < 10'000; ++i) {
        EXPECT_GE(many.target_of(i * 1000), many.target_of(i * 1000 - 101) + 101) << "two bytes in one place";
    }
    EXPECT_LE(many.size(), 10'000'000);
}

}  // namespace
}  // namespace vantlow
