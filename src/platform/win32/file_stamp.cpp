#include "platform/file_stamp.h"

#include "platform/fault_hook.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

// Of the year 1970 in the system's unit of 100 nanoseconds.
constexpr std::int64_t year_1970 = 116444736000000000;

std::uint64_t joined(DWORD high, DWORD low) noexcept {
    return (std::uint64_t{high} << 32U) | low;
}

}  // namespace

FileStamp file_stamp(const std::u16string& path) noexcept {
    if (ask_hook(Operation::inspect, path) != 0) return {};
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const Handle file(CreateFileW(NativePath(path).get(), FILE_READ_ATTRIBUTES, share, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION about{};
    if (!file.is_valid() || !GetFileInformationByHandle(file.get(), &about)) return {};
    const auto modified = joined(about.ftLastWriteTime.dwHighDateTime, about.ftLastWriteTime.dwLowDateTime);
    const auto size = joined(about.nFileSizeHigh, about.nFileSizeLow);
    return {true, (static_cast<std::int64_t>(modified) - year_1970) * 100, static_cast<std::int64_t>(size),
            joined(about.nFileIndexHigh, about.nFileIndexLow)};
}

}  // namespace vantlow
