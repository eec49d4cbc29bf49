#include "platform/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/file_parts.h"
#include "platform/posix/native.h"

namespace vantlow {
namespace {

PathKind kind_of_mode(mode_t mode) noexcept {
    if (S_ISREG(mode)) return PathKind::file;
    return S_ISDIR(mode) ? PathKind::folder : PathKind::other;
}

}  // namespace

FileError list_folder(const std::u16string& folder, std::vector<FolderEntry>& entries) {
    entries.clear();
    if (FileError error = ask_file_hook(Operation::list_folder, folder); !error.ok()) return error;
    const std::unique_ptr<DIR, int (*)(DIR*)> list(
        ::opendir(NativePath(folder.empty() ? u"." : folder).get()), &::closedir);
    if (list == nullptr) return file_error_of(errno);
    for (;;) {
        errno = 0;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): a list of its own
        const dirent* const found = ::readdir(list.get());
        if (found == nullptr) return file_error_of(errno);
        const std::string_view name = found->d_name;
        if (name == "." || name == "..") continue;
        struct stat status {};
        FolderEntry entry;
        entry.name = to_utf16(name);
        if (::fstatat(::dirfd(list.get()), found->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            continue;  // gone
        entry.is_link = S_ISLNK(status.st_mode);
        // A link to nothing stays what it is: something else.
        if (entry.is_link) static_cast<void>(::fstatat(::dirfd(list.get()), found->d_name, &status, 0));
        entry.kind = kind_of_mode(status.st_mode);
        entry.size = entry.kind == PathKind::file ? std::int64_t{status.st_size} : 0;
        entries.push_back(std::move(entry));
    }
}

FileError make_temporary_folder(const std::u16string& within, std::u16string& path) {
    const char* const named = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): never set here
    std::string folder = named != nullptr && *named == '/' ? named : "/var/tmp";
    if (!within.empty()) folder = to_utf8(within);
    folder += "/vantlow-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) return file_error_of(errno);
    path = to_utf16(folder);
    return {};
}

FileError remove_folder(const std::u16string& path) noexcept {
    return ::rmdir(NativePath(path).get()) == 0 ? FileError{} : file_error_of(errno);
}

}  // namespace vantlow
