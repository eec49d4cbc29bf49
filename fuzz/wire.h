// A connection whose other side has sent its bytes and gone.
#pragma once

#include "fuzz.h"
#include "transfer/connection/base_socket.h"

namespace vantlow::fuzz {

struct SilentLog : LogSink {
    void line(Direction /*direction*/, std::string_view text) override { CHECK(text.size() < 1'000'000); }
};

class Wire {
  public:
    /// At most 64 KiB: what the system keeps without a reader.
    explicit Wire(std::string_view bytes);
    CBaseSocket& socket() noexcept { return socket_; }

  private:
    SilentLog log_;
    StopSource stop_;
    CBaseSocket socket_;
};

/// Reads a body until it ends or fails; gives its bytes, at most `most` of them.
template <class Body>
std::string read_all(Body& body, std::size_t step, std::size_t most, Moved& last) {
    std::string all;
    std::vector<std::byte> into(step);
    do {
        last = body.read(into, from_now(std::chrono::seconds(10)));
        if (last.state != Moved::State::data) break;
        CHECK(last.bytes > 0 && last.bytes <= step);
        all += text_of(std::span(into).first(last.bytes));
    } while (all.size() < most);
    return all;
}

}  // namespace vantlow::fuzz
