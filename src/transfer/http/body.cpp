#include "transfer/http/body.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "transfer/connection/chunked.h"

namespace vantlow {

bool is_line_end(std::span<const std::byte> bytes) noexcept {
    constexpr std::array line_end{std::byte{'\r'}, std::byte{'\n'}};
    if (bytes.size() == 1 && bytes.front() == line_end.back()) return true;
    return bytes.size() <= line_end.size() &&
           std::ranges::equal(bytes, std::span(line_end).first(bytes.size()));
}

Moved Inflow::read(std::span<std::byte> into, Clock::time_point until) {
    if (!has_early()) return socket_.receive(into, until);
    const std::size_t bytes = std::min(into.size(), early_.size() - taken_);
    std::memcpy(into.data(), early_.data() + taken_, bytes);
    taken_ += bytes;
    if (!has_early()) {
        std::vector<std::byte>().swap(early_);
        taken_ = 0;
    }
    return Moved::data(bytes);
}

namespace {

// A body of a known length: received straight into the caller's buffer.
class LengthBody : public BodySource {
  public:
    LengthBody(Inflow inflow, std::int64_t length) : inflow_(std::move(inflow)), left_(length) {}

    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        return left_ == 0 ? Moved::closed() : counted(inflow_.read(into.first(most(into.size())), until));
    }
    [[nodiscard]] bool can_fill() const noexcept override { return inflow_.can_fill(); }
    Moved fill(Conduit& conduit, std::size_t wanted, Clock::time_point until) override {
        return left_ == 0 ? Moved::closed() : counted(inflow_.fill(conduit, most(wanted), until));
    }
    [[nodiscard]] bool is_whole() const noexcept override { return left_ == 0 && inflow_.ends_here(); }

  private:
    [[nodiscard]] std::size_t most(std::size_t wanted) const noexcept {
        return static_cast<std::size_t>(std::min<std::int64_t>(left_, static_cast<std::int64_t>(wanted)));
    }
    Moved counted(const Moved& moved) noexcept {
        if (moved.state == Moved::State::closed) return Moved::failed(Code::transient);  // short
        if (moved.state == Moved::State::data) left_ -= static_cast<std::int64_t>(moved.bytes);
        return moved;
    }

    Inflow inflow_;
    std::int64_t left_;
};

// A body that ends with the connection: nobody can tell whether it was cut short.
class ClosingBody : public BodySource {
  public:
    explicit ClosingBody(Inflow inflow) : inflow_(std::move(inflow)) {}
    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        return inflow_.read(into, until);
    }
    [[nodiscard]] bool can_fill() const noexcept override { return inflow_.can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) override {
        return inflow_.fill(conduit, most, until);
    }
    [[nodiscard]] bool is_whole() const noexcept override { return false; }

  private:
    Inflow inflow_;
};

class ChunkedBody : public BodySource {
  public:
    ChunkedBody(Inflow inflow, std::size_t buffer_size) : inflow_(std::move(inflow)), buffer_(buffer_size) {}

    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        for (;;) {
            const std::span<const std::byte> waiting(buffer_.data() + from_, filled_ - from_);
            const ChunkStep step = decoder_.decode(waiting, into);
            from_ += step.taken;
            if (step.state == ChunkStep::State::bad) return Moved::failed(Code::server_error);
            if (step.given > 0) return Moved::data(step.given);
            if (step.state == ChunkStep::State::end) return Moved::closed();
            from_ = filled_ = 0;
            const Moved moved = inflow_.read(buffer_, until);
            const bool is_short = moved.state == Moved::State::closed && !decoder_.has_all();
            if (is_short) return Moved::failed(Code::transient);
            if (moved.state != Moved::State::data) return moved;
            filled_ = moved.bytes;
        }
    }
    [[nodiscard]] bool is_whole() const noexcept override {
        return decoder_.is_done() && is_line_end(std::span(buffer_).subspan(from_, filled_ - from_)) &&
               inflow_.ends_here();
    }

  private:
    Inflow inflow_;
    ChunkedDecoder decoder_;
    std::vector<std::byte> buffer_;
    std::size_t from_ = 0;
    std::size_t filled_ = 0;
};

}  // namespace

Outcome<std::unique_ptr<BodySource>> make_body(const HttpHead& head, ContentCoding coding, Inflow inflow,
                                               const UnpackOperations& operations, std::size_t buffer_size) {
    std::unique_ptr<BodySource> body;
    if (head.chunked) {
        body = std::make_unique<ChunkedBody>(std::move(inflow), buffer_size);
    } else if (head.length) {
        body = std::make_unique<LengthBody>(std::move(inflow), *head.length);
    } else {
        body = std::make_unique<ClosingBody>(std::move(inflow));
    }
    // The content was packed before the transfer.
    for (const ContentCoding packed : {head.transfer_coding, coding}) {
        if (packed == ContentCoding::identity || packed == ContentCoding::other) continue;
        if (!operations.can_undo(packed)) return Code::unsupported;  // the caller names the missing library
        body = make_unpacking_body(std::move(body), packed, operations, buffer_size);
    }
    return body;
}

}  // namespace vantlow
