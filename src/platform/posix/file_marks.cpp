#include "platform/file_marks.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/fault_hook.h"
#include "platform/file_parts.h"
#include "platform/posix/native.h"

namespace vantlow {

FileStamp file_stamp(const std::u16string& path) noexcept {
    if (ask_hook(Operation::inspect, path) != 0) return {};
    struct stat status {};
    if (::stat(NativePath(path).get(), &status) != 0) return {};
    const std::int64_t nanoseconds =
        std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    return {true, nanoseconds, status.st_size, status.st_ino};
}

bool belongs_to_user(const std::u16string& path) noexcept {
    struct stat status {};
    return ::stat(NativePath(path).get(), &status) == 0 && status.st_uid == ::geteuid();
}

FileError mark_origin(const std::u16string& path, const FileOrigin& origin) {
    return ask_file_hook(Operation::mark, path, 0, static_cast<std::int64_t>(zone_identifier(origin).size()));
}

bool can_bear_mark(const std::u16string&) noexcept {
    return false;
}

}  // namespace vantlow
