// The bytes of an FTP transfer, compressed and as text.
#include "libraries.h"
#include "transfer/ftp/body.h"
#include "wire.h"

void vantlow::fuzz::run(std::string_view input) {
    const std::uint8_t kind = take_byte(input);
    FtpPlan plan;
    plan.text_mode = (kind & 2U) != 0;
    plan.native_lines = (kind & 4U) != 0;
    plan.buffer_size = 1U + take_byte(input);
    plan.inflate = {zlib_operations()};
    const bool compressed = (kind & 1U) != 0;
    Wire wire(input);
    const auto body = make_ftp_body(wire.socket(), plan, compressed);
    Moved last;
    const std::string bytes = read_all(*body, plan.buffer_size, std::size_t{8} << 20U, last);
    CHECK(last.state != Moved::State::quiet);
    CHECK(compressed || bytes.size() <= input.size());
    CHECK(compressed || last.state == Moved::State::closed);
}
