#include "platform/win32/native.h"

#include <sddl.h>

#include <algorithm>
#include <vector>

namespace vantlow {
namespace {

// Folders may be 12 characters shorter than the system's 260.
constexpr std::size_t longest_plain_path = 240;
constexpr std::size_t longest_name = 255;
// ERROR_DISK_QUOTA_EXCEEDED, which the headers lack.
constexpr DWORD disk_quota_exceeded = 1295;

bool has_long_name(std::u16string_view path) noexcept {
    std::size_t length = 0;
    for (const char16_t c : path) {
        length = c == u'\\' || c == u'/' ? 0 : length + 1;
        if (length > longest_name) return true;
    }
    return false;
}

HLOCAL release(HLOCAL memory) {
    return LocalFree(memory);
}

// The user's identity as text; empty when the system does not say.
std::u16string own_identity() {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return {};
    const Handle token(opened);
    DWORD size = 0;
    GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
    std::vector<std::byte> space(size);
    if (size == 0 || !GetTokenInformation(token.get(), TokenUser, space.data(), size, &size)) return {};
    wchar_t* text = nullptr;
    const auto* user = reinterpret_cast<const TOKEN_USER*>(space.data());
    if (!ConvertSidToStringSidW(user->User.Sid, &text)) return {};
    const std::unique_ptr<void, HLOCAL (*)(HLOCAL)> owner(text, &release);
    return from_wide(text);
}

}  // namespace

NativePath::NativePath(const std::u16string& path) : text_(path) {
    if (text_.find(u'\0') != std::u16string::npos) text_.clear();
    if (text_.empty() || text_.starts_with(u"\\\\?\\")) return;
    std::replace(text_.begin(), text_.end(), u'/', u'\\');
    const std::u16string whole = absolute_path(text_);
    if (whole.size() <= longest_plain_path || whole.starts_with(u"\\\\.\\")) return;
    text_ = whole.starts_with(u"\\\\") ? u"\\\\?\\UNC" + whole.substr(1) : u"\\\\?\\" + whole;
}

FileError file_error(DWORD error) noexcept {
    const auto with = [error](FileFault fault) { return FileError{fault, static_cast<int>(error)}; };
    switch (error) {
        case ERROR_SUCCESS:
            return {};
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
        case ERROR_BAD_NETPATH:
        case ERROR_BAD_NET_NAME:
        case ERROR_BAD_PATHNAME:
        case ERROR_DIRECTORY:
            return with(FileFault::not_found);
        case ERROR_FILE_EXISTS:
        case ERROR_ALREADY_EXISTS:
        case ERROR_DIR_NOT_EMPTY:
            return with(FileFault::exists);
        case ERROR_ACCESS_DENIED:
        case ERROR_NETWORK_ACCESS_DENIED:
            return with(FileFault::access);
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
        case ERROR_DELETE_PENDING:
        case ERROR_USER_MAPPED_FILE:
        case ERROR_BUSY:
            return with(FileFault::in_use);
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
        case disk_quota_exceeded:
            return with(FileFault::no_space);
        case ERROR_WRITE_PROTECT:
            return with(FileFault::read_only);
        case ERROR_FILENAME_EXCED_RANGE:
            return with(FileFault::name_too_long);
        case ERROR_FILE_TOO_LARGE:
            return with(FileFault::too_large);
        default:
            return with(FileFault::other);
    }
}

FileError file_error(DWORD error, const NativePath& path) noexcept {
    FileError result = file_error(error);
    const bool about_name = error == ERROR_INVALID_NAME || result.fault == FileFault::not_found;
    if (about_name && has_long_name(path.text())) result.fault = FileFault::name_too_long;
    if (result.fault == FileFault::access) {
        const DWORD attributes = GetFileAttributesW(path.get());
        const bool folder =
            attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (folder) result.fault = FileFault::is_folder;
    }
    return result;
}

OwnerOnly::OwnerOnly(bool wanted) : descriptor_(nullptr, &release) {
    if (!wanted) return;
    const std::u16string identity = own_identity();
    // The user has full access, and nothing is inherited from the folder.
    const std::u16string rules = u"D:P(A;;FA;;;" + identity + u")";
    PSECURITY_DESCRIPTOR made = nullptr;
    if (identity.empty() ||
        !ConvertStringSecurityDescriptorToSecurityDescriptorW(wide(rules), SDDL_REVISION_1, &made, nullptr)) {
        error_ = file_error(GetLastError());
        return;
    }
    descriptor_.reset(made);
    attributes_ =
        std::make_unique<SECURITY_ATTRIBUTES>(SECURITY_ATTRIBUTES{sizeof(SECURITY_ATTRIBUTES), made, FALSE});
}

}  // namespace vantlow
