#include "platform/file.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/file_parts.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

constexpr std::size_t most_at_once = 1U << 30U;
// The lock lies far behind the bytes of any file, because it keeps others from reading and writing what it
// covers.
constexpr std::int64_t lock_offset = std::int64_t{1} << 62U;
// Virus scanners and indexers open fresh files for a moment, and keep them from being replaced.
constexpr int replace_attempts = 15;
constexpr DWORD replace_pause_ms = 20;

HANDLE handle(std::intptr_t native) noexcept {
    return reinterpret_cast<HANDLE>(native);
}

FileError last_error() noexcept {
    return file_error(GetLastError());
}

OVERLAPPED at_position(std::int64_t offset) noexcept {
    OVERLAPPED position{};
    position.Offset = static_cast<DWORD>(offset & 0xFFFFFFFF);
    position.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return position;
}

DWORD disposition_of(OpenMode mode) noexcept {
    switch (mode) {
        case OpenMode::read:
        case OpenMode::write_existing:
            return OPEN_EXISTING;
        case OpenMode::write:
        case OpenMode::truncate:
            return OPEN_ALWAYS;
        case OpenMode::create_new:
            return CREATE_NEW;
    }
    return OPEN_EXISTING;
}

FileError set_end(std::intptr_t native, std::int64_t size) noexcept {
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = size;
    const BOOL done = SetFileInformationByHandle(handle(native), FileEndOfFileInfo, &end, sizeof end);
    return done ? FileError{} : last_error();
}

bool is_file(DWORD attributes) noexcept {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

FileError move_file(const NativePath& from, const NativePath& to, DWORD flags) noexcept {
    if (MoveFileExW(from.get(), to.get(), flags | MOVEFILE_WRITE_THROUGH)) return {};
    return file_error(GetLastError(), to);
}

}  // namespace

FileError file_error_of(int system_error) noexcept {
    return file_error(static_cast<DWORD>(system_error));
}

FileError File::open(const std::u16string& path, OpenMode mode, Privacy privacy) {
    close();
    path_ = path;
    if (FileError error = ask_file_hook(Operation::open, path); !error.ok()) return error;
    const NativePath native(path);
    const OwnerOnly security(privacy == Privacy::owner_only);
    if (!security.ok()) return security.error();
    const DWORD access = mode == OpenMode::read ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE opened = CreateFileW(native.get(), access, share, security.attributes(), disposition_of(mode),
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) return file_error(GetLastError(), native);
    native_ = reinterpret_cast<std::intptr_t>(opened);
    if (mode != OpenMode::truncate) return {};
    const FileError error = set_end(native_, 0);
    if (!error.ok()) close();
    return error;
}

void File::close() noexcept {
    if (native_ != invalid) CloseHandle(handle(std::exchange(native_, invalid)));
}

FileError File::write_at(std::int64_t offset, std::span<const std::byte> bytes) noexcept {
    const auto length = static_cast<std::int64_t>(bytes.size());
    if (FileError error = ask_file_hook(Operation::write, path_, offset, length); !error.ok()) return error;
    while (!bytes.empty()) {
        OVERLAPPED position = at_position(offset);
        const auto part = static_cast<DWORD>(std::min(bytes.size(), most_at_once));
        DWORD count = 0;
        if (!WriteFile(handle(native_), bytes.data(), part, &count, &position)) return last_error();
        if (count == 0) return file_error(ERROR_WRITE_FAULT);
        offset += count;
        bytes = bytes.subspan(count);
    }
    return {};
}

FileError File::read_at(std::int64_t offset, std::span<std::byte> into, std::size_t& got) const noexcept {
    got = 0;
    const auto length = static_cast<std::int64_t>(into.size());
    if (FileError error = ask_file_hook(Operation::read, path_, offset, length); !error.ok()) return error;
    while (got < into.size()) {
        OVERLAPPED position = at_position(offset + static_cast<std::int64_t>(got));
        const auto part = static_cast<DWORD>(std::min(into.size() - got, most_at_once));
        DWORD count = 0;
        if (!ReadFile(handle(native_), into.data() + got, part, &count, &position)) {
            const DWORD error = GetLastError();
            // The end of a file and of a pipe.
            return error == ERROR_HANDLE_EOF || error == ERROR_BROKEN_PIPE ? FileError{} : file_error(error);
        }
        if (count == 0) break;
        got += count;
    }
    return {};
}

FileError File::copy_from(const File& from, std::int64_t from_offset, std::int64_t to_offset,
                          std::int64_t count) noexcept {
    // No system call copies a part of a file, so the bytes pass through memory and the hook is asked for both
    // sides.
    return copy_through_memory(from, from_offset, to_offset, count);
}

std::int64_t File::size() const noexcept {
    if (ask_hook(Operation::size, path_) != 0) return -1;
    LARGE_INTEGER size{};
    return GetFileSizeEx(handle(native_), &size) ? size.QuadPart : -1;
}

FileError File::resize(std::int64_t size) noexcept {
    if (FileError error = ask_file_hook(Operation::resize, path_, size, 0); !error.ok()) return error;
    return set_end(native_, size);
}

FileError File::allocate(std::int64_t size) noexcept {
    if (FileError error = ask_file_hook(Operation::resize, path_, 0, size); !error.ok()) return error;
    // The end of a file that is not sparse takes the room up to it.
    return set_end(native_, size);
}

FileError File::flush() noexcept {
    if (FileError error = ask_file_hook(Operation::flush, path_); !error.ok()) return error;
    return FlushFileBuffers(handle(native_)) ? FileError{} : last_error();
}

std::uint64_t File::identity() const noexcept {
    BY_HANDLE_FILE_INFORMATION about{};
    if (!GetFileInformationByHandle(handle(native_), &about)) return 0;
    return (std::uint64_t{about.nFileIndexHigh} << 32U) | about.nFileIndexLow;
}

bool File::try_lock() noexcept {
    if (ask_hook(Operation::lock, path_) != 0) return false;
    OVERLAPPED position = at_position(lock_offset);
    const DWORD flags = LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY;
    if (LockFileEx(handle(native_), flags, 0, 1, 0, &position)) return true;
    const DWORD error = GetLastError();
    // A file system without locks must not keep anybody from working.
    return error == ERROR_NOT_SUPPORTED || error == ERROR_INVALID_FUNCTION;
}

PathKind path_kind(const std::u16string& path) noexcept {
    if (ask_hook(Operation::inspect, path) != 0) return PathKind::other;
    const NativePath native(path);
    const DWORD attributes = GetFileAttributesW(native.get());
    if (attributes != INVALID_FILE_ATTRIBUTES) return is_file(attributes) ? PathKind::file : PathKind::folder;
    const DWORD error = GetLastError();
    const FileFault fault = file_error(error, native).fault;
    const bool none =
        fault == FileFault::not_found || fault == FileFault::name_too_long || error == ERROR_INVALID_NAME;
    return none ? PathKind::none : PathKind::other;
}

FileError remove_file(const std::u16string& path) noexcept {
    if (FileError error = ask_file_hook(Operation::remove, path); !error.ok()) return error;
    const NativePath native(path);
    return DeleteFileW(native.get()) ? FileError{} : file_error(GetLastError(), native);
}

FileError rename_no_replace(const std::u16string& from, const std::u16string& to) noexcept {
    if (FileError error = ask_file_hook(Operation::rename, from); !error.ok()) return error;
    return move_file(NativePath(from), NativePath(to), 0);
}

FileError rename_replace(const std::u16string& from, const std::u16string& to) noexcept {
    if (FileError error = ask_file_hook(Operation::rename, from); !error.ok()) return error;
    const NativePath old_name(from);
    const NativePath new_name(to);
    FileError error = move_file(old_name, new_name, MOVEFILE_REPLACE_EXISTING);
    for (int attempt = 1; attempt < replace_attempts; ++attempt) {
        if (error.fault != FileFault::access && error.fault != FileFault::in_use) break;
        Sleep(replace_pause_ms);
        error = move_file(old_name, new_name, MOVEFILE_REPLACE_EXISTING);
    }
    return error;
}

FileError make_one_folder(const std::u16string& path) {
    if (FileError error = ask_file_hook(Operation::make_folder, path); !error.ok()) return error;
    const NativePath native(path);
    if (CreateDirectoryW(native.get(), nullptr)) return {};
    const DWORD error = GetLastError();
    return path_kind(path) == PathKind::folder ? FileError{} : file_error(error, native);
}

// The rights of a folder do not decide alone, so a file is made for a moment.
bool can_write_folder(const std::u16string& folder) {
    if (ask_hook(Operation::inspect, folder) != 0) return false;
    const NativePath path(join_path(folder, u".vantlow-probe"));
    const Handle file(
        CreateFileW(path.get(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    return file.is_valid();
}

FileError sync_folder(const std::u16string& path) noexcept {
    return ask_file_hook(Operation::flush, path);
}

char16_t path_separator() noexcept {
    return u'\\';
}

std::u16string absolute_path(const std::u16string& path) {
    if (path.empty()) return absolute_path(u".");
    const bool relative = path[0] != u'\\' && path[0] != u'/' && (path.size() < 2 || path[1] != u':');
    if (const std::u16string& folder = CurrentFolder::get(); relative && !folder.empty()) {
        const std::u16string from_there = join_path(folder, path);
        const bool whole = from_there.size() > 1 && (from_there[1] == u':' || from_there[0] == u'\\');
        if (whole) return absolute_path(from_there);
    }
    std::wstring whole(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetFullPathNameW(wide(path), static_cast<DWORD>(whole.size()), whole.data(), nullptr);
        if (length == 0) return path;
        const bool fits = length < whole.size();
        whole.resize(length);
        if (fits) return from_wide(whole);
    }
}

}  // namespace vantlow
