#include "platform/origin_mark.h"

#include "platform/file_parts.h"

namespace vantlow {

FileError mark_origin(const std::u16string& path, const FileOrigin& origin) {
    return ask_file_hook(Operation::mark, path, 0, static_cast<std::int64_t>(zone_identifier(origin).size()));
}

bool can_bear_mark(const std::u16string&) noexcept {
    return false;
}

}  // namespace vantlow
