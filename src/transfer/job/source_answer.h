// What a server granted, as any protocol tells it.
#pragma once

#include <cstdint>
#include <string>

#include "transfer/job/version_rule.h"

namespace vantlow {

/// What the server granted.
struct SourceAnswer {
    std::int64_t granted = 0;  ///< offset of the first byte that read() gives
    bool whole = false;        ///< the answer is the whole resource, whatever was asked
    bool encoded = false;  ///< bytes are decoded on the way: their number is unknown and ranges mean nothing
    bool ranges_promised = false;  ///< the server says that it answers ranges
    bool ranges_denied = false;    ///< the server says that it does not
    bool may_go_on = false;        ///< a part, and the size is not told: there may be more behind its end
    bool beyond_end = false;       ///< of an open() that failed: the resource has no byte at the offset
    ResourceVersion version;
    std::u16string name;     ///< suggested by the server, or from the address; not made safe; may be empty
    std::u16string address;  ///< where the answer came from, redirects followed
};

}  // namespace vantlow
