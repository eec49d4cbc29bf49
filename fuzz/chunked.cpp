// The chunked coding: any division of the bytes gives the same.
#include <array>

#include "fuzz.h"
#include "transfer/connection/chunked.h"

namespace vantlow::fuzz {
namespace {

struct Decoded {
    std::string bytes;
    std::size_t taken = 0;
    ChunkStep::State state = ChunkStep::State::more;
    bool operator==(const Decoded&) const = default;
};

Decoded decode(std::string_view input, std::size_t step, std::size_t room) {
    ChunkedDecoder decoder;
    Decoded all;
    std::array<std::byte, 512> out{};
    while (all.taken < input.size() && all.state == ChunkStep::State::more) {
        const auto part = bytes_of(input.substr(all.taken, step));
        const ChunkStep did = decoder.decode(part, std::span(out).first(room));
        CHECK(did.taken <= part.size() && did.given <= did.taken && did.given <= room);
        CHECK(did.taken > 0 || did.state != ChunkStep::State::more);
        all.bytes += text_of(std::span(out).first(did.given));
        all.taken += did.taken;
        all.state = did.state;
    }
    CHECK(decoder.is_done() == (all.state == ChunkStep::State::end));
    return all;
}

}  // namespace

void run(std::string_view input) {
    const std::size_t step = 1U + take_byte(input);
    const std::size_t room = 1U + take_byte(input);
    const Decoded whole = decode(input, input.size(), 512);
    Decoded divided = decode(input, step, room);
    if (whole.state == ChunkStep::State::bad) divided.taken = whole.taken;
    CHECK(divided == whole);
}

}  // namespace vantlow::fuzz
