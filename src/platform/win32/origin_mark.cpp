#include "platform/origin_mark.h"

#include <span>

#include "platform/file_parts.h"
#include "platform/win32/native.h"

namespace vantlow {

FileError mark_origin(const std::u16string& path, const FileOrigin& origin) {
    const std::string text = zone_identifier(origin);
    FileError error = ask_file_hook(Operation::mark, path, 0, static_cast<std::int64_t>(text.size()));
    if (!error.ok() || !can_bear_mark(path)) return error;
    File stream;
    // With its folder: "a:Zone.Identifier" would be a file on drive A.
    error = stream.open(absolute_path(path) + u":Zone.Identifier", OpenMode::truncate);
    return error.ok() ? stream.write_at(0, std::as_bytes(std::span(text))) : error;
}

// Asked, not tried: where there are no streams, the name may be taken for that of another file.
bool can_bear_mark(const std::u16string& path) noexcept {
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const Handle file(
        CreateFileW(NativePath(path).get(), FILE_READ_ATTRIBUTES, share, nullptr, OPEN_EXISTING, 0, nullptr));
    DWORD abilities = 0;
    return file.is_valid() &&
           GetVolumeInformationByHandleW(file.get(), nullptr, 0, nullptr, nullptr, &abilities, nullptr, 0) &&
           (abilities & FILE_NAMED_STREAMS) != 0;
}

}  // namespace vantlow
