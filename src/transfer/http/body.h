// The body of a response: from the connection's bytes to the resource's.
#pragma once

#include <memory>
#include <vector>

#include "runtime/operations.h"
#include "transfer/connection/base_socket.h"
#include "transfer/http/head.h"

namespace vantlow {

/// Gives the bytes of a body. `closed` means that the body ended as it should; one that is cut short fails
/// with `transient`. Owned and used by one thread.
class BodySource {
  public:
    BodySource() = default;
    BodySource(const BodySource&) = delete;
    BodySource& operator=(const BodySource&) = delete;
    virtual ~BodySource() = default;

    virtual Moved read(std::span<std::byte> into, Clock::time_point until) = 0;
    /// True when the whole answer was read, so that the connection stands before the next one.
    [[nodiscard]] virtual bool is_whole() const noexcept = 0;
};

/// What was received behind the header together with what the connection brings from now on.
class Inflow {
  public:
    Inflow(CBaseSocket& socket, std::vector<std::byte> early) : socket_(socket), early_(std::move(early)) {}
    Moved read(std::span<std::byte> into, Clock::time_point until);
    /// True while bytes are here that nobody has taken.
    [[nodiscard]] bool has_early() const noexcept { return taken_ < early_.size(); }

  private:
    CBaseSocket& socket_;
    std::vector<std::byte> early_;
    std::size_t taken_ = 0;
};

/// What inflates gzip: operations of a run-time library, any of which may be missing.
struct GzipOperations {
    GZ_InflateInit_t* begin = nullptr;
    ZLib_Inflate_t* step = nullptr;
    ZLib_InflateEnd_t* end = nullptr;
    [[nodiscard]] bool complete() const noexcept {
        return begin != nullptr && step != nullptr && end != nullptr;
    }
};

/// The decoders that a header asks for. `unsupported` for a content coding that cannot be undone here, or
/// when the library that undoes it is missing: such a body must not become a file.
Outcome<std::unique_ptr<BodySource>> make_body(const HttpHead& head, Inflow inflow,
                                               const GzipOperations& gzip, std::size_t buffer_size);

}  // namespace vantlow
