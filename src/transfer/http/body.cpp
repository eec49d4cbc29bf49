#include "transfer/http/body.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "transfer/http/chunked.h"

namespace vantlow {

Moved Inflow::read(std::span<std::byte> into, Clock::time_point until) {
    if (!has_early()) return socket_.receive(into, until);
    const std::size_t bytes = std::min(into.size(), early_.size() - taken_);
    std::memcpy(into.data(), early_.data() + taken_, bytes);
    taken_ += bytes;
    if (!has_early()) std::vector<std::byte>().swap(early_);
    return Moved::data(bytes);
}

namespace {

// A body of a known length: received straight into the caller's buffer.
class LengthBody : public BodySource {
  public:
    LengthBody(Inflow inflow, std::int64_t length) : inflow_(std::move(inflow)), left_(length) {}

    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        if (left_ == 0) return Moved::closed();
        const auto most =
            static_cast<std::size_t>(std::min<std::int64_t>(left_, static_cast<std::int64_t>(into.size())));
        const Moved moved = inflow_.read(into.first(most), until);
        if (moved.state == Moved::State::closed) return Moved::failed(Code::transient);  // short
        if (moved.state == Moved::State::data) left_ -= static_cast<std::int64_t>(moved.bytes);
        return moved;
    }
    [[nodiscard]] bool is_whole() const noexcept override { return left_ == 0 && !inflow_.has_early(); }

  private:
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
            if (moved.state == Moved::State::closed) return Moved::failed(Code::transient);
            if (moved.state != Moved::State::data) return moved;
            filled_ = moved.bytes;
        }
    }
    [[nodiscard]] bool is_whole() const noexcept override {
        return decoder_.is_done() && from_ == filled_ && !inflow_.has_early();
    }

  private:
    Inflow inflow_;
    ChunkedDecoder decoder_;
    std::vector<std::byte> buffer_;
    std::size_t from_ = 0;
    std::size_t filled_ = 0;
};

// Inflates what the source below gives; several gzip members in a row are one body (RFC 1952, 2.2).
class GzipBody : public BodySource {
  public:
    GzipBody(std::unique_ptr<BodySource> below, const GzipOperations& operations, std::size_t buffer_size)
        : below_(std::move(below)),
          operations_(operations),
          stream_(operations.begin()),
          buffer_(buffer_size) {}
    ~GzipBody() override { operations_.end(stream_); }

    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        while (stream_ != nullptr) {
            // Padding behind the last member is what some servers send; gzip itself ignores it.
            if (at_member_end_ && from_ < filled_ && buffer_[from_] != member_begin) padding_ = true;
            if (padding_) return skip_rest(until);
            if (from_ < filled_ || !at_member_end_) {
                std::size_t in_size = filled_ - from_;
                std::size_t out_size = into.size();
                const int state =
                    operations_.step(stream_, buffer_.data() + from_, &in_size, into.data(), &out_size);
                if (state == VANTLOW_Z_BAD) return Moved::failed(Code::server_error);
                from_ += in_size;
                at_member_end_ = false;
                if (state == VANTLOW_Z_END) next_member();
                if (out_size > 0) return Moved::data(out_size);
                if (in_size > 0) continue;
            }
            const Moved moved = below_->read(buffer_, until);
            // Nothing at all is what some servers make of an empty resource.
            if (moved.state == Moved::State::closed)
                return at_member_end_ || !begun_ ? moved : Moved::failed(Code::transient);
            if (moved.state != Moved::State::data) return moved;
            begun_ = true;
            from_ = 0;
            filled_ = moved.bytes;
        }
        return Moved::failed(Code::transient);
    }
    [[nodiscard]] bool is_whole() const noexcept override { return below_->is_whole(); }

  private:
    static constexpr std::byte member_begin{0x1F};  // RFC 1952, 2.3.1

    void next_member() {
        operations_.end(stream_);
        stream_ = operations_.begin();
        at_member_end_ = true;
    }
    Moved skip_rest(Clock::time_point until) {
        for (;;) {
            const Moved moved = below_->read(buffer_, until);
            if (moved.state != Moved::State::data) return moved;
        }
    }

    std::unique_ptr<BodySource> below_;
    GzipOperations operations_;
    VantlowZStream* stream_;
    std::vector<std::byte> buffer_;
    std::size_t from_ = 0;
    std::size_t filled_ = 0;
    bool begun_ = false;          ///< a byte came
    bool padding_ = false;        ///< nothing but padding comes any more
    bool at_member_end_ = false;  ///< a member ended and nothing of another one was seen
};

}  // namespace

Outcome<std::unique_ptr<BodySource>> make_body(const HttpHead& head, Inflow inflow,
                                               const GzipOperations& gzip, std::size_t buffer_size) {
    std::unique_ptr<BodySource> body;
    if (head.chunked) {
        body = std::make_unique<ChunkedBody>(std::move(inflow), buffer_size);
    } else if (head.length) {
        body = std::make_unique<LengthBody>(std::move(inflow), *head.length);
    } else {
        body = std::make_unique<ClosingBody>(std::move(inflow));
    }
    if (head.coding == ContentCoding::other) {
        return Result(Code::unsupported,
                      "The content coding \"" + head.content_encoding + "\" is not supported.");
    }
    if (head.coding == ContentCoding::gzip) {
        if (!gzip.complete()) return Code::unsupported;  // the caller names the missing library
        body = std::make_unique<GzipBody>(std::move(body), gzip, buffer_size);
    }
    return body;
}

}  // namespace vantlow
