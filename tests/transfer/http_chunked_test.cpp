#include "transfer/connection/chunked.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vantlow {
namespace {

struct Decoded {
    std::string body;
    std::size_t taken = 0;
    ChunkStep::State state = ChunkStep::State::more;
};

// Feeds the bytes in pieces of one size, with room for so many decoded bytes at a time.
Decoded decode(std::string_view bytes, std::size_t piece, std::size_t room) {
    ChunkedDecoder decoder;
    Decoded result;
    std::vector<std::byte> out(room);
    while (result.taken < bytes.size() && result.state == ChunkStep::State::more) {
        const std::string_view in = bytes.substr(result.taken, piece);
        const ChunkStep step = decoder.decode(std::as_bytes(std::span(in)), out);
        EXPECT_TRUE(step.taken > 0 || step.given > 0 || step.state != ChunkStep::State::more)
            << "no progress";
        if (step.taken == 0 && step.given == 0 && step.state == ChunkStep::State::more) break;
        result.body.append(reinterpret_cast<const char*>(out.data()), step.given);
        result.taken += step.taken;
        result.state = step.state;
    }
    EXPECT_EQ(decoder.is_done(), result.state == ChunkStep::State::end);
    return result;
}

constexpr std::size_t pieces[] = {1, 2, 3, 7, 1000};

TEST(ChunkedDecoder, GivesTheSameHoweverTheBytesAreDivided) {
    struct Case {
        std::string coded;
        std::string body;
    };
    const std::string more = "HTTP/1.1 200 OK\r\n";  // the next answer stays where it is
    const std::string long_extension = "5;" + std::string(1000, 'x') + "\r\nhello\r\n0\r\n\r\n";
    const Case cases[] = {
        {"5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", "hello world"},
        {"0\r\n\r\n", ""},
        {"000\r\n\r\n", ""},
        {"A\r\n0123456789\r\n0000a\r\n0123456789\r\n0\r\n\r\n", "01234567890123456789"},
        {"0000000000000005\r\nhello\r\n0000000000000000\r\n\r\n", "hello"},
        {"2\r\n\r\n\r\n1\r\n0\r\n0\r\n\r\n", "\r\n0"},  // data that looks like the coding
        {"5;name=value;other=\"a b\"\r\nhello\r\n0;last\r\n\r\n", "hello"},
        {"5 \r\nhello\r\n0\r\n\r\n", "hello"},  // blanks behind the size, seen from servers
        {long_extension, "hello"},
        {"5\r\nhello\r\n0\r\nTrailer: x\r\nAnother: 0\r\n\r\n", "hello"},
        {"5\nhello\n0\n\n", "hello"},
        {"5\nhello\n0\nTrailer: x\n\n", "hello"},
    };
    for (const Case& c : cases) {
        for (const std::size_t piece : pieces) {
            for (const std::size_t room : {std::size_t{1}, std::size_t{4}, std::size_t{1000}}) {
                const Decoded decoded = decode(c.coded + more, piece, room);
                EXPECT_EQ(decoded.state, ChunkStep::State::end) << c.coded;
                EXPECT_EQ(decoded.body, c.body) << c.coded << " in pieces of " << piece << " into " << room;
                EXPECT_EQ(decoded.taken, c.coded.size())
                    << c.coded << " in pieces of " << piece << " into " << room;
            }
        }
    }
}

TEST(ChunkedDecoder, RefusesWhatIsNoChunk) {
    const struct {
        const char* coded;
        const char* body;  // what may be given before the fault is seen
    } cases[] = {
        {"\r\n", ""},
        {"g\r\n", ""},
        {"-5\r\nhello\r\n", ""},
        {"+5\r\nhello\r\n", ""},
        {"0x5\r\nhello\r\n", ""},
        {" 5\r\nhello\r\n", ""},
        {";5\r\nhello\r\n", ""},
        {"5\rhello\r\n", ""},
        {"<html>", ""},
        {"5\r\nhelloX\r\n0\r\n\r\n", "hello"},  // more data than the size says
        {"5\r\nhello\rX0\r\n\r\n", "hello"},
        {"5\r\nhello0\r\n\r\n", "hello"},  // no line end behind the data
        {"5\r\nhello\r\n\r\n0\r\n\r\n", "hello"},
        {"FFFFFFFFFFFFFFFF\r\n", ""},  // would be negative in 64 bits
        {"1FFFFFFFFFFFFFFFF\r\n", ""},
        {"10000000000000005\r\nhello\r\n", ""},  // would be 5 in 64 bits
        {"8000000000000000\r\n", ""},
        {"00000000000000005\r\n", ""},  // more digits than any number needs
        {"0\r\n\rX", ""},
    };
    for (const auto& c : cases) {
        for (const std::size_t piece : pieces) {
            const Decoded decoded = decode(c.coded, piece, 1000);
            EXPECT_EQ(decoded.state, ChunkStep::State::bad) << c.coded << " in pieces of " << piece;
            EXPECT_EQ(decoded.body, c.body) << c.coded << " in pieces of " << piece;
        }
    }
}

TEST(ChunkedDecoder, KeepsWithinBounds) {
    const std::string much(1U << 20U, 'x');
    EXPECT_EQ(decode("5;" + much, 1000, 10).state, ChunkStep::State::bad);
    EXPECT_EQ(decode("0\r\nA: " + much, 1000, 10).state, ChunkStep::State::bad);
    std::string lines = "0\r\n";
    for (int i = 0; i < 100000; ++i) lines += "A: b\r\n";
    EXPECT_EQ(decode(lines, 1000, 10).state, ChunkStep::State::bad);
    std::string extensions;
    for (int i = 0; i < 100000; ++i) extensions += "1;e\r\nx\r\n";
    const Decoded many = decode(extensions + "0\r\n\r\n", 1000, 1000);
    EXPECT_EQ(many.state, ChunkStep::State::end) << "a short extension on each of many chunks is no attack";
    // A size as large as there can be is only a promise.
    const Decoded decoded = decode("7FFFFFFFFFFFFFFF\r\nabc", 1000, 10);
    EXPECT_EQ(decoded.state, ChunkStep::State::more);
    EXPECT_EQ(decoded.body, "abc");
}

}  // namespace
}  // namespace vantlow
