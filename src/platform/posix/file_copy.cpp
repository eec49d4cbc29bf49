#include "platform/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "platform/fault_hook.h"
#include "platform/file_parts.h"
#include "platform/posix/native.h"

namespace vantlow {

FileError copy_marks(const std::u16string& from, const std::u16string& to) {
    if (FileError error = ask_file_hook(Operation::mark, to, 0, 0); !error.ok()) return error;
    struct stat status {};
    if (::stat(NativePath(from).get(), &status) != 0) return file_error_of(errno);
    const NativePath copy(to);
    // A file system of another kind may know no rights.
    static_cast<void>(::chmod(copy.get(), status.st_mode & 0777U));
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    return ::utimensat(AT_FDCWD, copy.get(), times.data(), 0) == 0 ? FileError{} : file_error_of(errno);
}

}  // namespace vantlow
