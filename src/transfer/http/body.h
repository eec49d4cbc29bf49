// The body of a response: from the connection's bytes to the resource's, gzip and deflate undone on their
// way.
#pragma once

#include <memory>
#include <vector>

#include "runtime/tables.h"
#include "transfer/connection/base_socket.h"
#include "transfer/http/head.h"

namespace vantlow {

/// Gives the bytes of a body. `closed` means that the body ended as it should; one that is cut short fails
/// with `transient`. Owned and used by one thread.
class BodySource : public ByteSource {
  public:
    /// True when the whole answer was read, so that the connection stands before the next one.
    [[nodiscard]] virtual bool is_whole() const noexcept = 0;
};

/// True for no bytes at all and for one line end, or what has come of it.
bool is_line_end(std::span<const std::byte> bytes) noexcept;

/// The bytes that were received behind the header together with those that the connection brings from now on.
class Inflow {
  public:
    Inflow(CBaseSocket& socket, std::vector<std::byte> early) : socket_(socket), early_(std::move(early)) {}
    Moved read(std::span<std::byte> into, Clock::time_point until);
    [[nodiscard]] bool can_fill() const noexcept { return !has_early() && socket_.can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) {
        return socket_.fill(conduit, most, until);
    }
    /// True while bytes are here that nobody has taken.
    [[nodiscard]] bool has_early() const noexcept { return taken_ < early_.size(); }
    /// True when behind the body is nothing, or the empty line that old servers send there (RFC 9112, 2.2).
    [[nodiscard]] bool ends_here() const noexcept { return is_line_end(std::span(early_).subspan(taken_)); }

  private:
    CBaseSocket& socket_;
    std::vector<std::byte> early_;
    std::size_t taken_ = 0;
};

/// The operations of a run-time library that unpack; any may be missing.
struct UnpackOperations {
    GZ_InflateInit_t* gzip = nullptr;
    ZLib_InflateInit_t* zlib = nullptr;
    Raw_InflateInit_t* raw = nullptr;
    ZLib_Inflate_t* step = nullptr;
    ZLib_InflateEnd_t* end = nullptr;

    static UnpackOperations of(const SshTable& library) {
        return {library.GZ_InflateInit, library.ZLib_InflateInit, library.Raw_InflateInit,
                library.ZLib_Inflate, library.ZLib_InflateEnd};
    }
    [[nodiscard]] bool can_undo(ContentCoding coding) const noexcept {
        const bool begins = coding == ContentCoding::gzip ? gzip != nullptr : zlib != nullptr;
        return begins && step != nullptr && end != nullptr;
    }
};

/// The decoders of an answer's body: its transfer coding, and `coding`, which is the head's or, where the
/// bytes are to be kept as they came, identity. `unsupported` when the library that undoes a coding is
/// missing.
Outcome<std::unique_ptr<BodySource>> make_body(const HttpHead& head, ContentCoding coding, Inflow inflow,
                                               const UnpackOperations& operations, std::size_t buffer_size);

/// The bytes of `below` with the coding undone. Several gzip members in a row are one body (RFC 1952, 2.2),
/// and what follows a stream's end is padding. "deflate" may be wrapped (RFC 1950) or bare (RFC 1951), as
/// servers disagree. A body that is labelled and not so packed is given as it came. A damaged stream fails
/// with `server_error`, one that is cut short with `transient`. `operations` has what this coding takes.
std::unique_ptr<BodySource> make_unpacking_body(std::unique_ptr<BodySource> below, ContentCoding coding,
                                                const UnpackOperations& operations, std::size_t buffer_size);

}  // namespace vantlow
