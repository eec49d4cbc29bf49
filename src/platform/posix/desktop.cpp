#include "platform/desktop.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <vector>

#include "base/safe_name.h"
#include "base/text.h"
#include "platform/file_parts.h"
#include "platform/posix/native.h"
#include "platform/process.h"

extern char** environ;

namespace vantlow {
namespace {

constexpr std::u16string_view note_suffix = u".trashinfo";

/// Programs that were started and have not been waited for yet; the thread of the window's.
std::vector<pid_t>& started() {
    static std::vector<pid_t> all;
    return all;
}

FileError start_opener(const std::u16string& target) {
    std::erase_if(started(), [](pid_t id) { return ::waitpid(id, nullptr, WNOHANG) != 0; });
    if (const int error = ask_hook(Operation::start_process, u"xdg-open"); error != 0)
        return file_error_of(error);
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawnattr_init(&attributes);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes,
                               POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string program = "xdg-open";
    std::string word = to_utf8(target);
    char* words[] = {program.data(), word.data(), nullptr};
    pid_t id = -1;
    const int failure = ::posix_spawnp(&id, program.c_str(), &actions, &attributes, words, environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) return file_error_of(failure);
    started().push_back(id);
    return {};
}

std::optional<dev_t> device_of(const std::u16string& path) {
    if (const int error = ask_hook(Operation::inspect, path); error != 0) {
        errno = error;
        return std::nullopt;
    }
    struct stat status {};
    if (::lstat(NativePath(path).get(), &status) != 0) return std::nullopt;
    return status.st_dev;
}

// The highest folder above the path on the same file system.
std::u16string top_of(const std::u16string& path, dev_t device) {
    std::u16string top = folder_of(path);
    for (;;) {
        const std::u16string above = folder_of(top);
        if (above.empty() || above == top || device_of(above) != device) return top;
        top = above;
    }
}

// The shared bin of a file system is trusted only where it is a real folder and nobody can remove others'
// files.
bool is_shared_bin(const std::u16string& path) {
    struct stat status {};
    return ::lstat(NativePath(path).get(), &status) == 0 && S_ISDIR(status.st_mode) &&
           (status.st_mode & S_ISVTX) != 0;
}

bool is_own_folder(const std::u16string& path) {
    struct stat status {};
    return ::lstat(NativePath(path).get(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == ::geteuid();
}

struct Bin {
    std::u16string folder;
    std::u16string top;  ///< the paths in it are relative to this one; empty: absolute
};

FileError make_bin(const Bin& bin) {
    for (const std::u16string_view part : {u"", u"files", u"info"}) {
        const std::u16string folder = part.empty() ? bin.folder : join_path(bin.folder, part);
        if (FileError error = ask_file_hook(Operation::make_folder, folder); !error.ok()) return error;
        if (::mkdir(NativePath(folder).get(), 0700) != 0 && errno != EEXIST) return file_error_of(errno);
        if (!is_own_folder(folder)) return file_error_of(EACCES);
    }
    return {};
}

FileError find_bin(const std::u16string& path, Bin& bin) {
    const auto device = device_of(path);
    if (!device) return file_error_of(errno);
    const std::u16string data = folder_of(user_data_folder());  // the one that all programs share
    if (!data.empty() && make_folders(data).ok() && device_of(data) == device) {
        bin = {join_path(data, u"Trash"), {}};
        return make_bin(bin);
    }
    const std::u16string top = top_of(path, *device);
    const std::u16string user = to_utf16(std::to_string(::geteuid()));
    const std::u16string shared = join_path(top, u".Trash");
    if (is_shared_bin(shared)) {
        bin = {join_path(shared, user), top};
        if (make_bin(bin).ok()) return {};
    }
    bin = {join_path(top, u".Trash-" + user), top};
    return make_bin(bin);
}

std::string note_text(const Bin& bin, const std::u16string& path) {
    std::string written = to_utf8(path);
    if (!bin.top.empty()) written.erase(0, to_utf8(bin.top).size() + (bin.top == u"/" ? 0U : 1U));
    std::string escaped;
    for (const char c : written) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           std::string_view("/-_.~").find(c) != std::string_view::npos;
        escaped +=
            plain ? std::string(1, c) : print("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char date[32] = {};
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    return "[Trash Info]\nPath=" + escaped + "\nDeletionDate=" + date + "\n";
}

}  // namespace

std::string user_language() {
    for (const std::string_view name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const auto value = environment(name);
        if (!value || value->empty()) continue;
        std::string language = to_utf8(*value);
        language = language.substr(0, language.find_first_of(".@"));
        if (language == "C" || language == "POSIX") return {};
        if (const auto at = language.find('_'); at != std::string::npos) language[at] = '-';
        return language;
    }
    return {};
}

std::optional<std::int64_t> free_space(const std::u16string& folder) {
    std::u16string at = absolute_path(folder);
    if (ask_hook(Operation::inspect, at) != 0) return std::nullopt;
    struct statvfs status {};
    while (::statvfs(NativePath(at).get(), &status) != 0) {
        const std::u16string above = folder_of(at);
        if (errno != ENOENT || above == at || above.empty()) return std::nullopt;
        at = above;
    }
    const auto bytes = static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
    return static_cast<std::int64_t>(bytes);
}

FileError open_with_desktop(const std::u16string& target) {
    const bool address = istarts_with(target, u"http://") || istarts_with(target, u"https://");
    if (!address && (!target.starts_with(u'/') || path_kind(target) == PathKind::none))
        return file_error_of(ENOENT);
    return start_opener(target);
}

FileError show_in_folder(const std::u16string& path) {
    return open_with_desktop(folder_of(path));
}

FileError move_to_bin(const std::u16string& path, BinItem& item) {
    Bin bin;
    const std::u16string from = absolute_path(path);
    if (FileError error = find_bin(from, bin); !error.ok()) return error;
    const std::u16string notes = join_path(bin.folder, u"info");
    const std::u16string files = join_path(bin.folder, u"files");
    constexpr int most_tries = 10000;
    std::u16string name = name_of(from);
    File note;
    for (int i = 0;; ++i) {
        // The note reserves the name.
        item = {from, join_path(files, name), join_path(notes, name + std::u16string(note_suffix))};
        FileError error = note.open(item.note, OpenMode::create_new, Privacy::owner_only);
        if (error.ok() && path_kind(item.in_bin) != PathKind::none) {
            note.close();
            static_cast<void>(remove_file(item.note));
            error = {FileFault::exists, EEXIST};
        }
        if (error.ok()) break;
        if (error.fault != FileFault::exists || i == most_tries) return error;
        name = free_name(name, [&](const std::u16string& one) {
            return path_kind(join_path(files, one)) != PathKind::none ||
                   path_kind(join_path(notes, one + std::u16string(note_suffix))) != PathKind::none;
        });
    }
    const std::string text = note_text(bin, from);
    FileError error = note.write_at(0, std::as_bytes(std::span(text)));
    note.close();
    if (error.ok()) error = rename_no_replace(from, item.in_bin);
    if (!error.ok()) static_cast<void>(remove_file(item.note));
    return error;
}

FileError take_from_bin(const BinItem& item) {
    if (item.in_bin.empty()) return file_error_of(ENOENT);
    if (FileError error = rename_no_replace(item.in_bin, item.from); !error.ok()) return error;
    return item.note.empty() ? FileError{} : remove_file(item.note);
}

}  // namespace vantlow
