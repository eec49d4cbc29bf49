#include "transfer/ftp/body.h"

#include <algorithm>

namespace vantlow {
namespace {

class StreamBody : public FtpBody {
  public:
    explicit StreamBody(CBaseSocket& data) : data_(data) {}
    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        return data_.receive(into, until);
    }
    [[nodiscard]] bool can_fill() const noexcept override { return data_.can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) override {
        return data_.fill(conduit, most, until);
    }

  private:
    CBaseSocket& data_;
};

// MODE Z: one zlib stream for each transfer.
class InflateBody : public FtpBody {
  public:
    InflateBody(std::unique_ptr<FtpBody> below, const InflateOperations& operations, std::size_t buffer_size)
        : below_(std::move(below)),
          operations_(operations),
          stream_(operations.begin()),
          buffer_(buffer_size) {}
    ~InflateBody() override { operations_.end(stream_); }

    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        if (stream_ == nullptr) return Moved::failed(Code::transient);
        for (;;) {
            std::size_t in_size = filled_ - from_;
            std::size_t out_size = into.size();
            const int state =
                operations_.step(stream_, buffer_.data() + from_, &in_size, into.data(), &out_size);
            from_ += in_size;
            if (out_size > 0) return Moved::data(out_size);
            if (state == VANTLOW_Z_BAD) return Moved::failed(Code::server_error);
            if (in_size > 0) continue;
            const Moved moved = below_->read(buffer_, until);
            if (moved.state == Moved::State::closed && state != VANTLOW_Z_END && begun_)
                return Moved::failed(Code::transient);
            if (moved.state != Moved::State::data) return moved;
            begun_ = true;
            from_ = 0;
            // Bytes behind the stream's end belong to nothing.
            filled_ = state == VANTLOW_Z_END ? 0 : moved.bytes;
        }
    }

  private:
    std::unique_ptr<FtpBody> below_;
    InflateOperations operations_;
    VantlowZStream* stream_;
    std::vector<std::byte> buffer_;
    std::size_t from_ = 0;
    std::size_t filled_ = 0;
    bool begun_ = false;
};

// Text comes with CR LF (RFC 959, 3.1.1.1); each such pair becomes LF.
class LinesBody : public FtpBody {
  public:
    LinesBody(std::unique_ptr<FtpBody> below, std::size_t buffer_size)
        : below_(std::move(below)), buffer_(buffer_size) {}

    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        for (;;) {
            std::size_t given = 0;
            while (from_ < filled_ && given < into.size()) {
                const std::byte byte = buffer_[from_];
                if (held_return_ && byte != line_feed) {
                    held_return_ = false;
                    into[given++] = carriage_return;
                    continue;
                }
                held_return_ = byte == carriage_return;
                if (!held_return_) into[given++] = byte;
                ++from_;
            }
            if (given > 0) return Moved::data(given);
            const Moved moved = below_->read(buffer_, until);
            if (moved.state == Moved::State::closed && held_return_ && !into.empty()) {
                held_return_ = false;
                into[0] = carriage_return;
                return Moved::data(1);
            }
            if (moved.state != Moved::State::data) return moved;
            from_ = 0;
            filled_ = moved.bytes;
        }
    }

  private:
    static constexpr std::byte carriage_return{'\r'};
    static constexpr std::byte line_feed{'\n'};

    std::unique_ptr<FtpBody> below_;
    std::vector<std::byte> buffer_;
    std::size_t from_ = 0;
    std::size_t filled_ = 0;
    bool held_return_ = false;
};

}  // namespace

std::unique_ptr<FtpBody> make_ftp_body(CBaseSocket& data, const FtpPlan& plan, bool compressed) {
    std::unique_ptr<FtpBody> body = std::make_unique<StreamBody>(data);
    if (compressed) body = std::make_unique<InflateBody>(std::move(body), plan.inflate, plan.buffer_size);
    if (plan.text_mode && plan.native_lines)
        body = std::make_unique<LinesBody>(std::move(body), plan.buffer_size);
    return body;
}

}  // namespace vantlow
