#include "platform/posix/native.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/local_text.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// A socket's path has at most 107 bytes, 24 of them for its name.
constexpr std::size_t longest_folder = 83;

bool is_own_folder(const std::string& path) noexcept {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() &&
           (status.st_mode & 077U) == 0;
}

// On failure errno says why there is no folder; 0: it is somebody else's.
bool make_own_folder(const std::string& path) {
    errno = ask_hook(Operation::make_folder, path);
    if (errno != 0 || (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)) return false;
    errno = 0;
    return is_own_folder(path);
}

}  // namespace

std::string runtime_folder(std::string& error) {
    if (const auto named = environment("XDG_RUNTIME_DIR"); named && named->starts_with(u'/')) {
        std::string folder = to_utf8(*named) + "/vantlow";
        if (folder.size() <= longest_folder && make_own_folder(folder)) return folder;
    }
    std::string folder = "/tmp/vantlow-" + std::to_string(::geteuid());
    if (make_own_folder(folder)) return folder;
    error = folder + (errno != 0 ? ": " + system_text(errno) : " is not a private folder of this user");
    return {};
}

}  // namespace vantlow
