#include "platform/file.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/text.h"
#include "platform/file_parts.h"
#include "platform/posix/native.h"

namespace vantlow {
namespace {

int descriptor(std::intptr_t native) noexcept {
    return static_cast<int>(native);
}

FileFault fault_of(int error) noexcept {
    switch (error) {
        case 0:
            return FileFault::none;
        case ENOENT:
        case ENOTDIR:
            return FileFault::not_found;
        case EEXIST:
        case ENOTEMPTY:
            return FileFault::exists;
        case EACCES:
        case EPERM:
            return FileFault::access;
        case EISDIR:
            return FileFault::is_folder;
        case ENOSPC:
        case EDQUOT:
            return FileFault::no_space;
        case EROFS:
            return FileFault::read_only;
        case ENAMETOOLONG:
            return FileFault::name_too_long;
        case EBUSY:
        case ETXTBSY:
            return FileFault::in_use;
        case EFBIG:
            return FileFault::too_large;
        default:
            return FileFault::other;
    }
}

/// Repeats a call that a signal cut short; returns the error that it ended with.
template <class Call>
FileError repeat(Call call) noexcept {
    while (call() < 0) {
        if (errno != EINTR) return file_error_of(errno);
    }
    return {};
}

int open_flags(OpenMode mode) noexcept {
    switch (mode) {
        case OpenMode::read:
            return O_RDONLY;
        case OpenMode::write:
            return O_RDWR | O_CREAT;
        case OpenMode::write_existing:
            return O_RDWR;
        case OpenMode::create_new:
            return O_RDWR | O_CREAT | O_EXCL;
        case OpenMode::truncate:
            return O_RDWR | O_CREAT | O_TRUNC;
    }
    return O_RDONLY;
}

// Reads with pread; what has no positions (a pipe) gives its next bytes.
ssize_t read_some(int fd, std::span<std::byte> into, std::int64_t offset) noexcept {
    const ssize_t count = ::pread(fd, into.data(), into.size(), offset);
    return count < 0 && errno == ESPIPE ? ::read(fd, into.data(), into.size()) : count;
}

bool is_no_such_service(int error) noexcept {
    return error == ENOSYS || error == EINVAL || error == EOPNOTSUPP || error == ENOTTY;
}

// This is for file systems that cannot rename without replacing: a second name is only made where there is
// none.
FileError link_and_unlink(const char* from, const char* to) noexcept {
    if (::link(from, to) == 0) return ::unlink(from) == 0 ? FileError{} : file_error_of(errno);
    if (errno != EPERM && errno != EMLINK && !is_no_such_service(errno)) return file_error_of(errno);
    struct stat status {};
    if (::lstat(to, &status) == 0) return file_error_of(EEXIST);
    return repeat([&] { return ::rename(from, to); });
}

}  // namespace

FileError file_error_of(int system_error) noexcept {
    return {fault_of(system_error), system_error};
}

FileError File::open(const std::u16string& path, OpenMode mode, Privacy privacy) {
    close();
    path_ = path;
    if (FileError error = ask_file_hook(Operation::open, path); !error.ok()) return error;
    const NativePath native(path);
    const mode_t rights = privacy == Privacy::owner_only ? 0600 : 0666;
    int fd = -1;
    const int flags = open_flags(mode) | O_CLOEXEC | O_NOCTTY;
    FileError error = repeat([&] { return fd = ::open(native.get(), flags, rights); });
    if (!error.ok()) return error;
    native_ = fd;
    struct stat status {};
    // A folder can be opened for reading, but not read.
    if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) error = file_error_of(EISDIR);
    if (!error.ok()) close();
    return error;
}

void File::close() noexcept {
    if (native_ != invalid) ::close(descriptor(std::exchange(native_, invalid)));
}

FileError File::write_at(std::int64_t offset, std::span<const std::byte> bytes) noexcept {
    const auto length = static_cast<std::int64_t>(bytes.size());
    if (FileError error = ask_file_hook(Operation::write, path_, offset, length); !error.ok()) return error;
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(descriptor(native_), bytes.data(), bytes.size(), offset);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return file_error_of(count < 0 ? errno : EIO);
        offset += count;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return {};
}

FileError File::read_at(std::int64_t offset, std::span<std::byte> into, std::size_t& got) const noexcept {
    got = 0;
    const auto length = static_cast<std::int64_t>(into.size());
    if (FileError error = ask_file_hook(Operation::read, path_, offset, length); !error.ok()) return error;
    while (got < into.size()) {
        const auto at = offset + static_cast<std::int64_t>(got);
        const ssize_t count = read_some(descriptor(native_), into.subspan(got), at);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return file_error_of(errno);
        if (count == 0) break;
        got += static_cast<std::size_t>(count);
    }
    return {};
}

FileError File::copy_from(const File& from, std::int64_t from_offset, std::int64_t to_offset,
                          std::int64_t count) noexcept {
    if (FileError error = ask_file_hook(Operation::write, path_, to_offset, count); !error.ok()) return error;
    while (count > 0) {
        off64_t source = from_offset;
        off64_t target = to_offset;
        const ssize_t copied = ::copy_file_range(descriptor(from.native_), &source, descriptor(native_),
                                                 &target, static_cast<std::size_t>(count), 0);
        if (copied < 0 && errno == EINTR) continue;
        // There are different file systems on the two sides, or a system that cannot do it; it reports that
        // in many ways.
        if (copied < 0 && (errno == EXDEV || errno == EBADF || errno == ETXTBSY || is_no_such_service(errno)))
            break;
        if (copied < 0) return file_error_of(errno);
        if (copied == 0) break;  // the end, or a file that only seems to be empty
        from_offset += copied;
        to_offset += copied;
        count -= copied;
    }
    return count == 0 ? FileError{} : copy_through_memory(from, from_offset, to_offset, count);
}

std::int64_t File::size() const noexcept {
    if (ask_hook(Operation::size, path_) != 0) return -1;
    struct stat status {};
    return ::fstat(descriptor(native_), &status) == 0 ? status.st_size : -1;
}

FileError File::resize(std::int64_t size) noexcept {
    if (FileError error = ask_file_hook(Operation::resize, path_, size, 0); !error.ok()) return error;
    return repeat([&] { return ::ftruncate(descriptor(native_), size); });
}

FileError File::allocate(std::int64_t size) noexcept {
    if (FileError error = ask_file_hook(Operation::resize, path_, 0, size); !error.ok()) return error;
    const int fd = descriptor(native_);
    const std::int64_t before = this->size();
    if (size > 0 && before >= 0) {
        const FileError error = repeat([&] { return ::fallocate(fd, 0, 0, size); });
        // posix_fallocate would write zeros where the file system has no such service.
        if (!error.ok() && !is_no_such_service(error.system_error)) {
            (void)repeat(
                [&] { return ::ftruncate(fd, before); });  // gives back the room that was taken so far
            return error;
        }
    }
    return repeat([&] { return ::ftruncate(fd, size); });
}

FileError File::flush() noexcept {
    if (FileError error = ask_file_hook(Operation::flush, path_); !error.ok()) return error;
    const FileError error = repeat([&] { return ::fdatasync(descriptor(native_)); });
    // EINVAL: a device or a pipe, which has no disk behind it.
    return error.system_error == EINVAL ? FileError{} : error;
}

std::uint64_t File::identity() const noexcept {
    struct stat status {};
    return ::fstat(descriptor(native_), &status) == 0 ? status.st_ino : 0;
}

bool File::try_lock() noexcept {
    if (ask_hook(Operation::lock, path_) != 0) return false;
    const FileError error = repeat([&] { return ::flock(descriptor(native_), LOCK_EX | LOCK_NB); });
    // A file system without locks must not keep anybody from working.
    return error.ok() || error.system_error == ENOLCK || is_no_such_service(error.system_error);
}

PathKind path_kind(const std::u16string& path) noexcept {
    if (ask_hook(Operation::inspect, path) != 0) return PathKind::other;
    const NativePath native(path);
    struct stat status {};
    if (::stat(native.get(), &status) != 0) {
        const FileFault fault = fault_of(errno);
        if (fault != FileFault::not_found && fault != FileFault::name_too_long) return PathKind::other;
        // A link to nothing takes the name all the same, and something may have come meanwhile.
        if (::lstat(native.get(), &status) != 0) return PathKind::none;
    }
    if (S_ISREG(status.st_mode)) return PathKind::file;
    return S_ISDIR(status.st_mode) ? PathKind::folder : PathKind::other;
}

FileError remove_file(const std::u16string& path) noexcept {
    if (FileError error = ask_file_hook(Operation::remove, path); !error.ok()) return error;
    const NativePath native(path);
    return repeat([&] { return ::unlink(native.get()); });
}

FileError rename_no_replace(const std::u16string& from, const std::u16string& to) noexcept {
    if (FileError error = ask_file_hook(Operation::rename, from); !error.ok()) return error;
    const NativePath old_name(from);
    const NativePath new_name(to);
    const FileError error = repeat([&] {
        return ::syscall(SYS_renameat2, AT_FDCWD, old_name.get(), AT_FDCWD, new_name.get(), RENAME_NOREPLACE);
    });
    return is_no_such_service(error.system_error) ? link_and_unlink(old_name.get(), new_name.get()) : error;
}

FileError rename_replace(const std::u16string& from, const std::u16string& to) noexcept {
    if (FileError error = ask_file_hook(Operation::rename, from); !error.ok()) return error;
    const NativePath old_name(from);
    const NativePath new_name(to);
    return repeat([&] { return ::rename(old_name.get(), new_name.get()); });
}

FileError make_one_folder(const std::u16string& path) {
    if (FileError error = ask_file_hook(Operation::make_folder, path); !error.ok()) return error;
    if (::mkdir(NativePath(path).get(), 0777) == 0) return {};
    const int error = errno;
    return path_kind(path) == PathKind::folder ? FileError{} : file_error_of(error);
}

bool can_write_folder(const std::u16string& folder) {
    return ask_hook(Operation::inspect, folder) == 0 &&
           ::faccessat(AT_FDCWD, NativePath(folder).get(), W_OK | X_OK, AT_EACCESS) == 0;
}

FileError sync_folder(const std::u16string& path) noexcept {
    if (FileError error = ask_file_hook(Operation::flush, path); !error.ok()) return error;
    const NativePath native(path.empty() ? u"." : path);
    int fd = -1;
    FileError error = repeat([&] { return fd = ::open(native.get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    // A folder that may be written but not listed cannot be opened; syncing it is left to the system then.
    if (error.fault == FileFault::access) return {};
    if (!error.ok()) return error;
    error = repeat([&] { return ::fsync(fd); });
    ::close(fd);
    return error.system_error == EINVAL ? FileError{} : error;
}

char16_t path_separator() noexcept {
    return u'/';
}

std::u16string absolute_path(const std::u16string& path) {
    if (path.starts_with(u'/')) return path;
    std::u16string current = CurrentFolder::get();
    if (current.empty()) {
        std::string own(4096, '\0');
        if (::getcwd(own.data(), own.size()) == nullptr) return path;
        own.resize(own.find('\0'));
        current = to_utf16(own);
    }
    std::u16string_view rest = path;
    while (rest.starts_with(u"./")) rest.remove_prefix(2);
    return join_path(current, rest == u"." ? std::u16string_view{} : rest);
}

}  // namespace vantlow
