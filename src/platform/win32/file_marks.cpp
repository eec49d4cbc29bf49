#include "platform/file_marks.h"

#include <memory>
#include <span>
#include <vector>

#include "platform/fault_hook.h"
#include "platform/file_parts.h"
#include "platform/win32/native.h"
// after it
#include <aclapi.h>

namespace vantlow {
namespace {

// The beginning of 1970 in the system's unit of 100 nanoseconds.
constexpr std::int64_t year_1970 = 116444736000000000;

// True for the user of this process and for the owner of what it makes, which is the administrators' group
// where an administrator runs it.
bool is_own(PSID owner, TOKEN_INFORMATION_CLASS which) {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return false;
    const Handle token(opened);
    DWORD size = 0;
    GetTokenInformation(token.get(), which, nullptr, 0, &size);
    std::vector<std::byte> space(size);
    if (size == 0 || !GetTokenInformation(token.get(), which, space.data(), size, &size)) return false;
    // Both structures begin with the identity.
    PSID own = which == TokenUser ? reinterpret_cast<const TOKEN_USER*>(space.data())->User.Sid
                                  : reinterpret_cast<const TOKEN_OWNER*>(space.data())->Owner;
    return EqualSid(owner, own) != 0;
}

std::uint64_t joined(DWORD high, DWORD low) noexcept {
    return (std::uint64_t{high} << 32U) | low;
}

}  // namespace

FileStamp file_stamp(const std::u16string& path) noexcept {
    if (ask_hook(Operation::inspect, path) != 0) return {};
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const Handle file(CreateFileW(NativePath(path).get(), FILE_READ_ATTRIBUTES, share, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION about{};
    if (!file.is_valid() || !GetFileInformationByHandle(file.get(), &about)) return {};
    const auto modified = joined(about.ftLastWriteTime.dwHighDateTime, about.ftLastWriteTime.dwLowDateTime);
    const auto size = joined(about.nFileSizeHigh, about.nFileSizeLow);
    return {true, (static_cast<std::int64_t>(modified) - year_1970) * 100, static_cast<std::int64_t>(size),
            joined(about.nFileIndexHigh, about.nFileIndexLow)};
}

bool belongs_to_user(const std::u16string& path) noexcept {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR described = nullptr;
    if (GetNamedSecurityInfoW(NativePath(path).get(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                              nullptr, nullptr, nullptr, &described) != ERROR_SUCCESS)
        return false;
    const std::unique_ptr<void, HLOCAL (*)(HLOCAL)> freed(described,
                                                          [](HLOCAL memory) { return LocalFree(memory); });
    // File systems without owners say that everybody is one.
    const bool is_nobodys = owner == nullptr || IsWellKnownSid(owner, WinWorldSid) != 0;
    return is_nobodys || is_own(owner, TokenUser) || is_own(owner, TokenOwner);
}

FileError mark_origin(const std::u16string& path, const FileOrigin& origin) {
    const std::string text = zone_identifier(origin);
    FileError error = ask_file_hook(Operation::mark, path, 0, static_cast<std::int64_t>(text.size()));
    if (!error.ok() || !can_bear_mark(path)) return error;
    File stream;
    // The path has its folder: "a:Zone.Identifier" would be a file on drive A.
    error = stream.open(absolute_path(path) + u":Zone.Identifier", OpenMode::truncate);
    return error.ok() ? stream.write_at(0, std::as_bytes(std::span(text))) : error;
}

// The volume is asked and nothing is tried: where there are no streams, the name may be taken for that of
// another file.
bool can_bear_mark(const std::u16string& path) noexcept {
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const Handle file(
        CreateFileW(NativePath(path).get(), FILE_READ_ATTRIBUTES, share, nullptr, OPEN_EXISTING, 0, nullptr));
    DWORD abilities = 0;
    return file.is_valid() &&
           GetVolumeInformationByHandleW(file.get(), nullptr, 0, nullptr, nullptr, &abilities, nullptr, 0) &&
           (abilities & FILE_NAMED_STREAMS) != 0;
}

}  // namespace vantlow
