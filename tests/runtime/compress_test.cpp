// The compression of libssh, called as the program calls it: through the table of the loaded library.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "base/codes.h"
#include "platform/file.h"
#include "platform/process.h"
#include "runtime/tables.h"
#include "support/content.h"

namespace vantlow {
namespace {

constexpr std::string_view fox = "The quick brown fox jumps over the lazy dog. ";

// Four times the fox, made by another program, with every optional field that a header can have (RFC
// 1952, 2.3).
constexpr std::string_view gzip_of_four_foxes =
    "1f8b081e000000000203040058590000612e747874006e6f746500b1e40bc94855282ccd4cce56482aca2fcf5348cbaf50c82acd"
    "2d28"
    "56c82f4b2d5228014ae72456552aa4e4a7eb29840c0ec5001b8dff44b4000000";

std::string bytes_of(std::string_view hexadecimal) {
    const auto bytes = from_hex(hexadecimal).value();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string repeated(std::string_view text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

struct Fed {
    int state = VANTLOW_Z_MORE;
    std::string out;
    std::size_t taken = 0;
};

class Compression : public testing::Test {
  protected:
    using Inflater = std::unique_ptr<VantlowZStream, ZLib_InflateEnd_t*>;

    static void SetUpTestSuite() { tables() = load_libraries(folder_of(program_path())); }
    static LibraryTables& tables() {
        static LibraryTables loaded;
        return loaded;
    }
    static const SshTable& ssh() { return tables().ssh; }

    void SetUp() override {
        ASSERT_TRUE(ssh().GZ_InflateInit && ssh().ZLib_InflateInit && ssh().Raw_InflateInit &&
                    ssh().ZLib_Inflate && ssh().ZLib_InflateEnd);
        ASSERT_TRUE(ssh().ZLib_DeflateInit && ssh().ZLib_Deflate && ssh().ZLib_DeflateEnd && ssh().ZLib_Free);
    }

    static Inflater gzip_inflater() { return {ssh().GZ_InflateInit(), ssh().ZLib_InflateEnd}; }
    static Inflater raw_inflater() { return {ssh().Raw_InflateInit(), ssh().ZLib_InflateEnd}; }
    static Inflater zlib_inflater() { return {ssh().ZLib_InflateInit(), ssh().ZLib_InflateEnd}; }

    /// Feeds `in_piece` bytes at a time into room for `out_piece` until the end, damage, or nothing moves any
    /// more.
    static Fed inflate(VantlowZStream* stream, std::string_view in, std::size_t in_piece = 4096,
                       std::size_t out_piece = 4096) {
        Fed fed;
        std::string room(out_piece, '\0');
        while (fed.state == VANTLOW_Z_MORE) {
            std::size_t in_size = std::min(in_piece, in.size() - fed.taken);
            std::size_t out_size = room.size();
            fed.state = ssh().ZLib_Inflate(stream, in.data() + fed.taken, &in_size, room.data(), &out_size);
            EXPECT_LE(out_size, room.size());
            fed.taken += in_size;
            fed.out.append(room, 0, out_size);
            if (in_size == 0 && out_size == 0) break;
        }
        return fed;
    }

    static std::string deflate(std::string_view in, int level, std::size_t in_piece = 4096,
                               std::size_t out_piece = 4096) {
        VantlowZStream* const stream = ssh().ZLib_DeflateInit(level);
        Fed fed;
        std::string room(out_piece, '\0');
        for (int steps = 0; fed.state == VANTLOW_Z_MORE && steps < 10'000'000; ++steps) {
            std::size_t in_size = std::min(in_piece, in.size() - fed.taken);
            std::size_t out_size = room.size();
            const int finish = fed.taken + in_size == in.size() ? 1 : 0;
            fed.state =
                ssh().ZLib_Deflate(stream, in.data() + fed.taken, &in_size, room.data(), &out_size, finish);
            fed.taken += in_size;
            fed.out.append(room, 0, out_size);
        }
        ssh().ZLib_DeflateEnd(stream);
        EXPECT_EQ(fed.state, VANTLOW_Z_END);
        EXPECT_EQ(fed.taken, in.size());
        return fed.out;
    }
};

TEST_F(Compression, RoundTripsInAnyPieces) {
    const std::string mixed =
        repeated(fox, 3000) + test::make_content(1, 70'000) + std::string(200'000, '\0');
    for (const std::string& content : {std::string(), std::string("x"), mixed}) {
        for (const int level : {1, 6, 9}) {
            const std::string packed = deflate(content, level);
            EXPECT_EQ(inflate(zlib_inflater().get(), packed).out, content);
            // Without its two bytes in front and its sum of four behind (RFC 1950, 2.2).
            const std::string bare = packed.substr(2, packed.size() - 6);
            const Fed raw = inflate(raw_inflater().get(), bare);
            EXPECT_TRUE(raw.out == content && raw.state == VANTLOW_Z_END);
            // As bytes arrive one at a time, and as they leave one at a time.
            EXPECT_EQ(deflate(content, level, 1, 4096), packed);
            EXPECT_EQ(deflate(content, level, 4096, 1), packed);
            const Fed by_byte = inflate(zlib_inflater().get(), packed, 1, 1);
            EXPECT_EQ(by_byte.state, VANTLOW_Z_END);
            EXPECT_EQ(by_byte.taken, packed.size());
            EXPECT_TRUE(by_byte.out == content);
        }
    }
    EXPECT_LT(deflate(mixed, 9).size(), mixed.size() / 3);
}

TEST_F(Compression, ReadsGzipHeadersOfEveryForm) {
    const std::string foxes = repeated(fox, 4);
    const std::string packed = bytes_of(gzip_of_four_foxes);
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, packed.size()}) {
        const Fed fed = inflate(gzip_inflater().get(), packed, piece, piece);
        EXPECT_EQ(fed.state, VANTLOW_Z_END);
        EXPECT_EQ(fed.out, foxes);
    }
    const std::string large = test::make_content(2, 200'000);
    EXPECT_TRUE(inflate(gzip_inflater().get(), test::gzip_stored(large), 777, 5000).out == large);
}

TEST_F(Compression, TheEndLeavesWhatFollowsUntaken) {
    const std::string first = bytes_of(gzip_of_four_foxes);
    const std::string both = first + test::gzip_stored("second") + "rubbish";
    const Inflater stream = gzip_inflater();
    const Fed fed = inflate(stream.get(), both);
    EXPECT_EQ(fed.state, VANTLOW_Z_END);
    EXPECT_EQ(fed.taken, first.size());
    // Once at its end a stream stays there and takes nothing more.
    const Fed again = inflate(stream.get(), std::string_view(both).substr(fed.taken));
    EXPECT_EQ(again.state, VANTLOW_Z_END);
    EXPECT_EQ(again.taken, 0U);
    const Fed next = inflate(gzip_inflater().get(), std::string_view(both).substr(fed.taken));
    EXPECT_EQ(next.state, VANTLOW_Z_END);
    EXPECT_EQ(next.out, "second");
    EXPECT_EQ(fed.taken + next.taken, both.size() - std::string_view("rubbish").size());
}

TEST_F(Compression, ATruncatedStreamNeverEnds) {
    const std::string packed = bytes_of(gzip_of_four_foxes);
    for (std::size_t size = 0; size < packed.size(); ++size) {
        const Fed fed = inflate(gzip_inflater().get(), std::string_view(packed).substr(0, size));
        EXPECT_EQ(fed.state, VANTLOW_Z_MORE) << size;
        EXPECT_EQ(fed.taken, size);
    }
}

TEST_F(Compression, DamageIsNeverTakenForTheContent) {
    const std::string foxes = repeated(fox, 4);
    const std::string packed = bytes_of(gzip_of_four_foxes);
    constexpr std::size_t method = 2;    // where the header names it
    constexpr std::size_t content = 29;  // where the header ends
    int bad = 0;
    for (std::size_t at = content; at < packed.size(); ++at) {
        std::string damaged = packed;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x11);
        const Inflater stream = gzip_inflater();
        const Fed fed = inflate(stream.get(), damaged, 7, 5);
        if (fed.state == VANTLOW_Z_END) {
            EXPECT_EQ(fed.out, foxes) << "damaged at " << at;  // bits that nothing stands in
        }
        if (fed.state != VANTLOW_Z_BAD) continue;  // it waits for more than there is
        ++bad;
        EXPECT_EQ(inflate(stream.get(), packed).state, VANTLOW_Z_BAD) << "after damage at " << at;
    }
    EXPECT_GT(bad, 40);
    std::string other = packed;
    other[method] = '\x07';
    EXPECT_EQ(inflate(gzip_inflater().get(), other).state, VANTLOW_Z_BAD);
}

TEST_F(Compression, AnotherFormatIsBad) {
    EXPECT_EQ(inflate(gzip_inflater().get(), "<!DOCTYPE html><html></html>").state, VANTLOW_Z_BAD);
    EXPECT_EQ(inflate(zlib_inflater().get(), "<!DOCTYPE html><html></html>").state, VANTLOW_Z_BAD);
    EXPECT_EQ(inflate(gzip_inflater().get(), deflate(fox, 6)).state, VANTLOW_Z_BAD);
    EXPECT_EQ(inflate(zlib_inflater().get(), bytes_of(gzip_of_four_foxes)).state, VANTLOW_Z_BAD);
    // A stream that needs a dictionary that nobody has (RFC 1950, 2.2: FDICT).
    EXPECT_EQ(inflate(zlib_inflater().get(), std::string("\x78\xbb\x01\x02\x03\x04xyz", 9)).state,
              VANTLOW_Z_BAD);
}

TEST_F(Compression, WithoutInputOrRoomNothingMoves) {
    const std::string packed = deflate(fox, 6);
    const Inflater stream = zlib_inflater();
    std::size_t in_size = 0;
    std::size_t out_size = 0;
    EXPECT_EQ(ssh().ZLib_Inflate(stream.get(), nullptr, &in_size, nullptr, &out_size), VANTLOW_Z_MORE);
    in_size = packed.size();
    EXPECT_EQ(ssh().ZLib_Inflate(stream.get(), packed.data(), &in_size, nullptr, &out_size), VANTLOW_Z_MORE);
    EXPECT_EQ(out_size, 0U);
    const Fed rest = inflate(stream.get(), std::string_view(packed).substr(in_size));
    EXPECT_EQ(rest.state, VANTLOW_Z_END);
    EXPECT_EQ(rest.out, fox);
}

}  // namespace
}  // namespace vantlow
