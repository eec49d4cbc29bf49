// Bodies that a server has packed: gzip and deflate undone on their way.
#pragma once

#include <memory>

#include "runtime/tables.h"
#include "transfer/http/body.h"

namespace vantlow {

/// The bytes of `below` with the coding undone. Several gzip members in a row are one body (RFC 1952, 2.2),
/// and what follows a stream's end is padding. "deflate" may be wrapped (RFC 1950) or bare (RFC 1951), as
/// servers disagree. A body that is labelled and not so packed is given as it came. A damaged stream fails
/// with `server_error`, one that is cut short with `transient`. `operations` has what this coding takes.
std::unique_ptr<BodySource> make_unpacking_body(std::unique_ptr<BodySource> below, ContentCoding coding,
                                                const UnpackOperations& operations, std::size_t buffer_size);

}  // namespace vantlow
