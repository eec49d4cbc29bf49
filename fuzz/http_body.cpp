// Bodies of HTTP answers (by length, chunked, gzip, deflate), some bytes come with the head.
#include "libraries.h"
#include "transfer/http/body.h"
#include "wire.h"

namespace vantlow::fuzz {
namespace {

struct Body {
    std::string bytes;
    Moved::State end = Moved::State::failed;
};

Body read(const HttpHead& head, std::string_view input, std::size_t early, std::size_t step) {
    early = std::min(early, input.size());
    const auto first = bytes_of(input.substr(0, early));
    Wire wire(input.substr(early));
    auto body = make_body(head, head.coding, Inflow(wire.socket(), {first.begin(), first.end()}),
                          unpack_operations(), step);
    CHECK(body.ok());
    Moved last;
    Body all{read_all(**body, step, std::size_t{8} << 20U, last), last.state};
    CHECK(last.state != Moved::State::quiet);
    // A body that ended well stays ended; one that was not read to its end leaves no connection for the next
    // request.
    if (last.state == Moved::State::failed) CHECK(last.code != Code::ok);
    return all;
}

}  // namespace

void run(std::string_view input) {
    HttpHead head;
    const std::uint8_t kind = take_byte(input);
    const std::size_t early = take_byte(input);
    const std::size_t step = 1U + take_byte(input);
    head.chunked = (kind & 1U) != 0;
    if ((kind & 2U) != 0) head.coding = (kind & 8U) != 0 ? ContentCoding::deflate : ContentCoding::gzip;
    if (!head.chunked && (kind & 4U) != 0) head.length = take_byte(input);
    const Body divided = read(head, input, early, step);
    const Body whole = read(head, input, 0, 65536);
    CHECK(head.coding != ContentCoding::identity || whole.bytes.size() <= input.size());
    CHECK(divided.end == whole.end);
    // How much is given before a failure is a matter of the division.
    if (whole.end == Moved::State::closed) CHECK(divided.bytes == whole.bytes);
}

}  // namespace vantlow::fuzz
