#include "transfer/http/body.h"

#include <algorithm>
#include <array>

namespace vantlow {
namespace {

constexpr std::array gzip_begin{std::byte{0x1F}, std::byte{0x8B}, std::byte{8}};  // RFC 1952, 2.3.1
// So many bytes tell whether they are a deflate stream: text and pictures fail within some ten bytes.
constexpr std::size_t deflate_sample = 512;
constexpr std::size_t smallest_buffer = 1024;

class Stream {
  public:
    Stream(GZ_InflateInit_t* begin, const UnpackOperations& operations)
        : operations_(operations), stream_(begin()) {}
    ~Stream() { operations_.end(stream_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    [[nodiscard]] bool is_there() const noexcept { return stream_ != nullptr; }
    /// As ZLib_Inflate: `in` and `out` become what was taken and what was given.
    int step(std::span<const std::byte>& in, std::span<std::byte>& out) {
        std::size_t taken = in.size();
        std::size_t given = out.size();
        const int state = operations_.step(stream_, in.data(), &taken, out.data(), &given);
        in = in.first(taken);
        out = out.first(given);
        return state;
    }

  private:
    const UnpackOperations& operations_;
    VantlowZStream* const stream_;
};

// Whether a stream of this form begins like that. `whole`: there is nothing behind these bytes.
bool fits(GZ_InflateInit_t* begin, const UnpackOperations& operations, std::span<const std::byte> bytes,
          bool whole) {
    if (begin == nullptr) return false;
    Stream stream(begin, operations);
    std::array<std::byte, 4096> bin;
    int state = VANTLOW_Z_MORE;
    for (std::size_t rounds = 0; rounds < 16 && state == VANTLOW_Z_MORE; ++rounds) {
        std::span<const std::byte> in = bytes;
        std::span<std::byte> out = bin;
        state = stream.step(in, out);
        if (in.empty() && out.empty()) break;
        bytes = bytes.subspan(in.size());
    }
    return state == VANTLOW_Z_END || (state == VANTLOW_Z_MORE && !(whole && bytes.empty()));
}

class UnpackingBody : public BodySource {
  public:
    UnpackingBody(std::unique_ptr<BodySource> below, ContentCoding coding, const UnpackOperations& operations,
                  std::size_t buffer_size)
        : below_(std::move(below)),
          coding_(coding),
          operations_(operations),
          buffer_(std::max(buffer_size, smallest_buffer)) {}

    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    [[nodiscard]] bool is_whole() const noexcept override { return below_->is_whole(); }

  private:
    enum class Mode {
        looking,  ///< are these bytes so packed?
        unpacking,
        as_it_came,
        padding,  ///< the stream ended: what follows is not given
    };
    Moved look(Clock::time_point until);
    Moved unpack(std::span<std::byte> into, Clock::time_point until);
    Moved give(std::span<std::byte> into, Clock::time_point until);
    Moved skip_rest(Clock::time_point until);
    Moved refill(Clock::time_point until);
    [[nodiscard]] GZ_InflateInit_t* form_of(std::span<const std::byte> bytes) const;
    [[nodiscard]] std::span<const std::byte> waiting() const noexcept {
        return std::span(buffer_).subspan(from_, filled_ - from_);
    }

    std::unique_ptr<BodySource> below_;
    const ContentCoding coding_;
    const UnpackOperations operations_;
    std::vector<std::byte> buffer_;
    std::size_t from_ = 0;
    std::size_t filled_ = 0;
    Mode mode_ = Mode::looking;
    GZ_InflateInit_t* begin_ = nullptr;  ///< of the form that the body has
    std::unique_ptr<Stream> stream_;
    bool ended_ = false;          ///< the source below gives nothing more
    bool at_member_end_ = false;  ///< a gzip member ended and nothing of another one was seen
};

Moved UnpackingBody::read(std::span<std::byte> into, Clock::time_point until) {
    if (mode_ == Mode::looking) {
        if (const Moved moved = look(until); moved.state != Moved::State::data) return moved;
    }
    if (mode_ == Mode::as_it_came) return give(into, until);
    return mode_ == Mode::padding ? skip_rest(until) : unpack(into, until);
}

// Brings more bytes behind those that wait; `closed` at the end, each time that it is asked.
Moved UnpackingBody::refill(Clock::time_point until) {
    if (ended_) return Moved::closed();
    if (from_ == filled_) from_ = filled_ = 0;
    const Moved moved = below_->read(std::span(buffer_).subspan(filled_), until);
    if (moved.state == Moved::State::data) filled_ += moved.bytes;
    ended_ = moved.state == Moved::State::closed;
    return moved;
}

// Reads until it is known what the bytes are; `data` then.
Moved UnpackingBody::look(Clock::time_point until) {
    const std::size_t enough = coding_ == ContentCoding::gzip ? gzip_begin.size() : deflate_sample;
    while (filled_ < enough && !ended_) {
        const Moved moved = refill(until);
        if (moved.state == Moved::State::quiet || moved.state == Moved::State::failed) return moved;
    }
    begin_ = form_of(std::span(buffer_).first(std::min(filled_, enough)));
    mode_ = begin_ != nullptr ? Mode::unpacking : Mode::as_it_came;
    if (begin_ == nullptr) return Moved::data(filled_);
    stream_ = std::make_unique<Stream>(begin_, operations_);
    return stream_->is_there() ? Moved::data(filled_) : Moved::failed(Code::transient);
}

// Begins to unpack; null for bytes that are not packed.
GZ_InflateInit_t* UnpackingBody::form_of(std::span<const std::byte> bytes) const {
    if (coding_ == ContentCoding::gzip)
        return std::ranges::equal(bytes, gzip_begin) ? operations_.gzip : nullptr;
    const bool whole = bytes.size() < deflate_sample;
    // A wrapped stream that was cut short is one: its two bytes in front hold a check.
    if (bytes.size() >= 2 && fits(operations_.zlib, operations_, bytes, false)) return operations_.zlib;
    return fits(operations_.raw, operations_, bytes, whole) ? operations_.raw : nullptr;
}

Moved UnpackingBody::unpack(std::span<std::byte> into, Clock::time_point until) {
    for (;;) {
        if (at_member_end_ && !waiting().empty()) {
            // Some servers send padding behind the last member; gzip itself ignores it.
            if (coding_ != ContentCoding::gzip || waiting().front() != gzip_begin[0]) mode_ = Mode::padding;
            if (mode_ == Mode::padding) return skip_rest(until);
            stream_ = std::make_unique<Stream>(begin_, operations_);
            if (!stream_->is_there()) return Moved::failed(Code::transient);
            at_member_end_ = false;
        }
        if (!at_member_end_) {
            std::span<const std::byte> in = waiting();
            std::span<std::byte> out = into;
            const int state = stream_->step(in, out);
            if (state == VANTLOW_Z_BAD) return Moved::failed(Code::server_error);
            from_ += in.size();
            at_member_end_ = state == VANTLOW_Z_END;
            if (!out.empty()) return Moved::data(out.size());
            if (!in.empty() || at_member_end_) continue;
        }
        const Moved moved = refill(until);
        if (moved.state == Moved::State::closed)
            return at_member_end_ ? moved : Moved::failed(Code::transient);
        if (moved.state != Moved::State::data) return moved;
    }
}

Moved UnpackingBody::give(std::span<std::byte> into, Clock::time_point until) {
    if (waiting().empty()) return ended_ ? Moved::closed() : below_->read(into, until);
    const auto bytes = waiting().first(std::min(into.size(), waiting().size()));
    std::ranges::copy(bytes, into.begin());
    from_ += bytes.size();
    return Moved::data(bytes.size());
}

Moved UnpackingBody::skip_rest(Clock::time_point until) {
    for (;;) {
        from_ = filled_;
        if (const Moved moved = refill(until); moved.state != Moved::State::data) return moved;
    }
}

}  // namespace

std::unique_ptr<BodySource> make_unpacking_body(std::unique_ptr<BodySource> below, ContentCoding coding,
                                                const UnpackOperations& operations, std::size_t buffer_size) {
    return std::make_unique<UnpackingBody>(std::move(below), coding, operations, buffer_size);
}

}  // namespace vantlow
