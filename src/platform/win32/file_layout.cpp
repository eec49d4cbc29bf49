#include "platform/file_layout.h"

#include "platform/file_parts.h"
#include "platform/win32/native.h"
// after it
#include <winioctl.h>

#include <array>

namespace vantlow {
namespace {

constexpr std::size_t most_ranges = 100'000;

HANDLE open_shared(const NativePath& path, DWORD access) noexcept {
    return CreateFileW(path.get(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

FileError list_data(const std::u16string& path, std::vector<ByteRange>& ranges) {
    ranges.clear();
    if (FileError error = ask_file_hook(Operation::inspect, path); !error.ok()) return error;
    const NativePath native(path);
    const Handle file(open_shared(native, GENERIC_READ));
    if (!file.is_valid()) return file_error(GetLastError(), native);
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.get(), &size)) return file_error(GetLastError());
    std::array<FILE_ALLOCATED_RANGE_BUFFER, 256> found{};
    FILE_ALLOCATED_RANGE_BUFFER wanted{};
    wanted.Length.QuadPart = size.QuadPart;
    while (wanted.Length.QuadPart > 0 && ranges.size() < most_ranges) {
        DWORD bytes = 0;
        const BOOL whole = DeviceIoControl(file.get(), FSCTL_QUERY_ALLOCATED_RANGES, &wanted, sizeof wanted,
                                           found.data(), sizeof found, &bytes, nullptr);
        if (!whole && GetLastError() != ERROR_MORE_DATA) break;
        const std::size_t count = bytes / sizeof found[0];
        for (std::size_t i = 0; i < count; ++i) {
            const std::int64_t begin = found[i].FileOffset.QuadPart;
            ranges.push_back({begin, begin + found[i].Length.QuadPart});
        }
        if (whole || count == 0) return {};
        wanted.FileOffset.QuadPart = ranges.back().end;
        wanted.Length.QuadPart = size.QuadPart - ranges.back().end;
    }
    ranges.clear();
    if (size.QuadPart > 0) ranges.push_back({0, size.QuadPart});
    return {};
}

void allow_holes(const std::u16string& path) noexcept {
    const Handle file(open_shared(NativePath(path), GENERIC_READ | GENERIC_WRITE));
    DWORD bytes = 0;
    if (!file.is_valid()) return;
    DeviceIoControl(file.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &bytes, nullptr);
}

void hide_file(const std::u16string& path) noexcept {
    SetFileAttributesW(NativePath(path).get(), FILE_ATTRIBUTE_HIDDEN);
}

// Only an administrator may flush a whole volume.
void WholeDisk::open(const std::u16string& folder) noexcept {
    static_cast<void>(folder);
}

void WholeDisk::close() noexcept {}

bool WholeDisk::covers(const std::u16string& folder) const noexcept {
    static_cast<void>(folder);
    return false;
}

FileError WholeDisk::sync() noexcept {
    return file_error(ERROR_NOT_SUPPORTED);
}

int other_disk_number() noexcept {
    return ERROR_NOT_SAME_DEVICE;
}

bool is_other_disk(const FileError& error) noexcept {
    return error.system_error == ERROR_NOT_SAME_DEVICE;
}

}  // namespace vantlow
