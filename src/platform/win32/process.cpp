#include "platform/process.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/text.h"
#include "platform/file.h"
#include "platform/win32/native.h"
// after the system's own
#include <initguid.h>
#include <knownfolders.h>
#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

#ifndef VANTLOW_VERSION
#error "VANTLOW_VERSION must name the version"
#endif

namespace vantlow {
namespace {

constexpr std::size_t longest_program_path = 1024;
constexpr const wchar_t* version_entry = L"\\StringFileInfo\\040904b0\\ProductVersion";

std::u16string known_folder(const KNOWNFOLDERID& which) {
    wchar_t* path = nullptr;
    const HRESULT result = SHGetKnownFolderPath(which, KF_FLAG_DONT_VERIFY, nullptr, &path);
    const std::unique_ptr<wchar_t, void (*)(void*)> owner(path, &CoTaskMemFree);
    return SUCCEEDED(result) && path != nullptr ? from_wide(path) : std::u16string{};
}

// The version in the program file; empty when it has no such resource.
std::u16string version_from_resource() {
    const std::u16string program = program_path();
    const NativePath path(program);
    DWORD ignored = 0;
    const DWORD size = program.empty() ? 0 : GetFileVersionInfoSizeW(path.get(), &ignored);
    std::vector<std::byte> resource(size);
    if (size == 0 || !GetFileVersionInfoW(path.get(), 0, size, resource.data())) return {};
    void* value = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(resource.data(), version_entry, &value, &length) || length == 0) return {};
    const std::wstring_view text(static_cast<const wchar_t*>(value), length);
    return from_wide(text.substr(0, text.find(L'\0')));
}

}  // namespace

std::vector<std::u16string> command_line(int /*argc*/, char** /*argv*/) {
    int count = 0;
    wchar_t** const list = CommandLineToArgvW(GetCommandLineW(), &count);
    const std::unique_ptr<wchar_t*, HLOCAL (*)(HLOCAL)> owner(
        list, [](HLOCAL memory) { return LocalFree(memory); });
    std::vector<std::u16string> words;
    for (int i = 0; list != nullptr && i < count; ++i) words.push_back(from_wide(list[i]));
    return words;
}

std::optional<std::u16string> environment(std::string_view name) {
    const std::u16string wide_name = to_utf16(name);
    std::wstring value(256, L'\0');
    for (;;) {
        SetLastError(ERROR_SUCCESS);
        const DWORD length =
            GetEnvironmentVariableW(wide(wide_name), value.data(), static_cast<DWORD>(value.size()));
        if (length == 0 && GetLastError() != ERROR_SUCCESS) return std::nullopt;
        const bool fits = length < value.size();
        value.resize(length);
        if (fits) return from_wide(value);
    }
}

std::u16string program_path() {
    std::wstring path(longest_program_path + 1, L'\0');
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0 || length >= path.size()) return {};
    return from_wide(std::wstring_view(path).substr(0, length));
}

std::u16string product_version() {
    // Programs without the resource (tests) have the version that was built in.
    static const std::u16string version = [] {
        const std::u16string found = version_from_resource();
        return found.empty() ? to_utf16(VANTLOW_VERSION) : found;
    }();
    return version;
}

bool belongs_to_packages(std::u16string_view) noexcept {
    return false;
}

std::u16string user_logon_name() {
    wchar_t name[257] = {};  // UNLEN and the zero
    DWORD size = std::size(name);
    return GetUserNameW(name, &size) ? from_wide(name) : std::u16string{};
}

std::u16string user_data_folder() {
    const std::u16string base = known_folder(FOLDERID_LocalAppData);
    return base.empty() ? base : join_path(base, u"Vantlow");
}

std::u16string user_config_folder() {
    return known_folder(FOLDERID_RoamingAppData);
}

std::u16string home_folder() {
    const auto named = environment("USERPROFILE");
    return named && !named->empty() ? *named : known_folder(FOLDERID_Profile);
}

std::string_view platform_name() noexcept {
    return "Windows x86_64";
}

std::int64_t process_id() noexcept {
    return GetCurrentProcessId();
}

bool can_outlive_terminal() noexcept {
    return false;
}

std::u16string user_download_folder() {
    const std::u16string folder = known_folder(FOLDERID_Downloads);
    return folder.empty() ? home_folder() : folder;
}

void end_process(int status) noexcept {
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
    std::abort();  // never reached
}

// The heap of this system gives large free blocks back by itself.
void give_back_memory() noexcept {}

void random_guid(unsigned char (&bytes)[16]) {
    GUID guid{};
    if (FAILED(CoCreateGuid(&guid)))
        std::abort();  // a system without random numbers: identities could collide
    static_assert(sizeof guid == sizeof bytes);
    std::memcpy(bytes, &guid, sizeof bytes);
}

}  // namespace vantlow
