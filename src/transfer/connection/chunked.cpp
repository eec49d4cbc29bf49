#include "transfer/connection/chunked.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::size_t most_skipped = 64 * 1024;
constexpr int most_digits = 16;
constexpr std::int64_t largest_begin =
    std::numeric_limits<std::int64_t>::max() / 16;  // before one more digit

}  // namespace

void ChunkedDecoder::size_digit(char c) {
    if (const auto digit = parse_hexadecimal(std::string_view(&c, 1))) {
        if (++digits_ > most_digits || size_ > largest_begin) {
            state_ = State::bad;
        } else {
            size_ = size_ * 16 + *digit;
        }
        return;
    }
    if (digits_ == 0) {
        state_ = State::bad;
    } else if (c == '\n') {  // a bare LF: tolerated, as in headers
        state_ = size_ == 0 ? State::trailer_start : State::data;
    } else if (c == '\r') {
        state_ = State::size_lf;
    } else if (c == ';' || c == ' ' || c == '\t') {
        state_ = State::extension;
    } else {
        state_ = State::bad;
    }
}

void ChunkedDecoder::step(char c) {
    switch (state_) {
        case State::size:
            size_digit(c);
            break;
        case State::extension:
            if (++skipped_ > most_skipped) state_ = State::bad;
            if (c == '\n') state_ = size_ == 0 ? State::trailer_start : State::data;
            break;
        case State::size_lf:
            state_ = c != '\n' ? State::bad : size_ == 0 ? State::trailer_start : State::data;
            break;
        case State::data_cr:
            state_ = c == '\r' ? State::data_lf : State::bad;
            if (c == '\n') state_ = State::size;
            break;
        case State::data_lf:
            state_ = c == '\n' ? State::size : State::bad;
            break;
        case State::trailer_start:
            state_ = c == '\n' ? State::done : c == '\r' ? State::trailer_lf : State::trailer;
            break;
        case State::trailer:
            if (++skipped_ > most_skipped) state_ = State::bad;
            if (c == '\n') state_ = State::trailer_start;
            break;
        case State::trailer_lf:
            state_ = c == '\n' ? State::done : State::bad;
            break;
        case State::data:
        case State::done:
        case State::bad:
            break;
    }
    if (state_ == State::size && c == '\n') {
        size_ = digits_ = 0;
        skipped_ = 0;
    }
}

ChunkStep ChunkedDecoder::decode(std::span<const std::byte> in, std::span<std::byte> out) {
    ChunkStep result;
    while (state_ != State::done && state_ != State::bad && result.taken < in.size()) {
        if (state_ != State::data) {
            step(std::to_integer<char>(in[result.taken++]));
            continue;
        }
        const std::size_t room = std::min(in.size() - result.taken, out.size() - result.given);
        const auto bytes =
            static_cast<std::size_t>(std::min<std::int64_t>(size_, static_cast<std::int64_t>(room)));
        if (bytes == 0) break;  // no room left
        std::memcpy(out.data() + result.given, in.data() + result.taken, bytes);
        result.taken += bytes;
        result.given += bytes;
        size_ -= static_cast<std::int64_t>(bytes);
        if (size_ == 0) state_ = State::data_cr;
    }
    if (state_ == State::done) result.state = ChunkStep::State::end;
    if (state_ == State::bad) result.state = ChunkStep::State::bad;
    return result;
}

}  // namespace vantlow
