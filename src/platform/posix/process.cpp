#include "platform/process.h"

#include <malloc.h>
#include <pwd.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/text.h"
#include "platform/file.h"

#ifndef VANTLOW_VERSION
#error "VANTLOW_VERSION must name the version"
#endif

namespace vantlow {
namespace {

constexpr std::size_t longest_program_path = 1024;

struct Account {
    std::u16string name;
    std::u16string home;
};

Account own_account() {
    std::vector<char> space(1024);
    passwd record{};
    passwd* found = nullptr;
    while (::getpwuid_r(::geteuid(), &record, space.data(), space.size(), &found) == ERANGE) {
        space.resize(space.size() * 2);
    }
    if (found == nullptr) return {};
    return {to_utf16(record.pw_name), to_utf16(record.pw_dir)};
}

// A folder named by the environment; relative ones must be ignored (XDG base directories).
std::u16string folder_variable(std::string_view name) {
    const auto value = environment(name);
    return value && value->starts_with(u'/') ? *value : std::u16string{};
}

std::u16string below_home(std::u16string_view folder) {
    const std::u16string home = home_folder();
    return home.empty() ? home : join_path(home, folder);
}

}  // namespace

std::vector<std::u16string> command_line(int argc, char** argv) {
    std::vector<std::u16string> words;
    words.reserve(static_cast<std::size_t>(argc));
    for (int i = 0; i < argc; ++i) words.push_back(to_utf16(argv[i]));
    return words;
}

std::optional<std::u16string> environment(std::string_view name) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): never set here
    const char* const value = std::getenv(std::string(name).c_str());
    return value == nullptr ? std::nullopt : std::optional(to_utf16(value));
}

std::u16string program_path() {
    std::string target(4096, '\0');
    const ssize_t length = ::readlink("/proc/self/exe", target.data(), target.size());
    if (length <= 0) return {};
    target.resize(static_cast<std::size_t>(length));
    std::u16string path = to_utf16(target);
    // The system adds this when the file was replaced while the program runs.
    constexpr std::u16string_view replaced = u" (deleted)";
    if (path.ends_with(replaced) && path_kind(path) == PathKind::none)
        path.resize(path.size() - replaced.size());
    return path.size() <= longest_program_path ? path : std::u16string{};
}

std::u16string product_version() {
    return to_utf16(VANTLOW_VERSION);
}

bool belongs_to_packages(std::u16string_view folder) noexcept {
    return folder.starts_with(u"/usr/") && !folder.starts_with(u"/usr/local/");
}

std::u16string user_logon_name() {
    return own_account().name;
}

std::u16string user_data_folder() {
    const std::u16string named = folder_variable("XDG_DATA_HOME");
    const std::u16string base = named.empty() ? below_home(u".local/share") : named;
    return base.empty() ? base : join_path(base, u"vantlow");
}

std::u16string user_config_folder() {
    const std::u16string named = folder_variable("XDG_CONFIG_HOME");
    return named.empty() ? below_home(u".config") : named;
}

std::u16string home_folder() {
    const std::u16string named = folder_variable("HOME");
    return named.empty() ? own_account().home : named;
}

std::string_view platform_name() noexcept {
#if defined(__x86_64__)
    return "Linux x86_64";
#elif defined(__aarch64__)
    return "Linux aarch64";
#else
    return "Linux";
#endif
}

std::int64_t process_id() noexcept {
    return ::getpid();
}

bool can_outlive_terminal() noexcept {
    return true;
}

// "XDG_DOWNLOAD_DIR" in user-dirs.dirs (xdg-user-dirs): an absolute path or one that begins with $HOME.
std::u16string user_download_folder() {
    constexpr std::string_view key = "XDG_DOWNLOAD_DIR=\"";
    std::vector<std::byte> bytes;
    std::u16string home = home_folder();
    if (!read_file(join_path(user_config_folder(), u"user-dirs.dirs"), 65536, bytes).ok()) return home;
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (std::string_view line : split(text, '\n')) {
        line = trim(line);
        if (!line.starts_with(key)) continue;
        line.remove_prefix(key.size());
        line = line.substr(0, line.find('"'));
        constexpr std::string_view home_variable = "$HOME/";
        if (line.starts_with(home_variable))
            return join_path(home, to_utf16(line.substr(home_variable.size())));
        if (line.starts_with('/')) return to_utf16(line);
    }
    return home;
}

void end_process(int status) noexcept {
    ::_exit(status);
}

// Without this, each of up to eight arenas a processor keeps the most that its threads ever held.
void give_back_memory() noexcept {
    ::malloc_trim(0);
}

void random_guid(unsigned char (&bytes)[16]) {
    // Up to 256 bytes come whole; a signal can interrupt only before the system's generator is ready.
    while (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        if (errno != EINTR) std::abort();  // a kernel without the call: identities could collide
    }
    bytes[7] = static_cast<unsigned char>((bytes[7] & 0x0FU) | 0x40U);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);
}

}  // namespace vantlow
