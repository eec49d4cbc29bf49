#include "platform/file_layout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "platform/file_parts.h"
#include "platform/posix/native.h"

namespace vantlow {
namespace {

constexpr std::size_t most_ranges = 100'000;

}  // namespace

FileError list_data(const std::u16string& path, std::vector<ByteRange>& ranges) {
    ranges.clear();
    if (FileError error = ask_file_hook(Operation::inspect, path); !error.ok()) return error;
    const int fd = ::open(NativePath(path).get(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return file_error_of(errno);
    const auto close = [](const int* open) { ::close(*open); };
    const std::unique_ptr<const int, decltype(close)> closing(&fd, close);
    struct stat status {};
    if (::fstat(fd, &status) != 0) return file_error_of(errno);
    for (off_t at = 0; at < status.st_size && ranges.size() < most_ranges;) {
        const off_t data = ::lseek(fd, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO) return {};  // nothing but a hole is left
        const off_t hole = data < 0 ? -1 : ::lseek(fd, data, SEEK_HOLE);
        if (hole <= data) break;
        ranges.push_back({data, hole});
        at = hole;
        if (at >= status.st_size) return {};
    }
    if (status.st_size > 0) ranges.assign(1, {0, status.st_size});
    return {};
}

void allow_holes(const std::u16string& path) noexcept {
    static_cast<void>(path);
}

void hide_file(const std::u16string& path) noexcept {
    static_cast<void>(path);
}

void WholeDisk::open(const std::u16string& folder) noexcept {
    close();
    path_ = folder;
    native_ = ::open(NativePath(folder).get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat status {};
    if (native_ < 0 || ::fstat(static_cast<int>(native_), &status) != 0) return close();
    device_ = status.st_dev;
}

void WholeDisk::close() noexcept {
    if (native_ >= 0) ::close(static_cast<int>(native_));
    native_ = -1;
}

bool WholeDisk::covers(const std::u16string& folder) const noexcept {
    struct stat status {};
    return native_ >= 0 && ::stat(NativePath(folder).get(), &status) == 0 && status.st_dev == device_;
}

FileError WholeDisk::sync() noexcept {
    if (FileError error = ask_file_hook(Operation::flush, path_); !error.ok()) return error;
    return ::syncfs(static_cast<int>(native_)) == 0 ? FileError{} : file_error_of(errno);
}

int other_disk_number() noexcept {
    return EXDEV;
}

bool is_other_disk(const FileError& error) noexcept {
    return error.system_error == EXDEV;
}

}  // namespace vantlow
