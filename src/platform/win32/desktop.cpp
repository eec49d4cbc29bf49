#include "platform/desktop.h"

#include "base/text.h"
#include "platform/file_parts.h"
#include "platform/win32/native.h"
// after the system's own
#include <shellapi.h>

namespace vantlow {
namespace {

bool is_absolute(const std::u16string& path) {
    return (path.size() > 2 && path[1] == u':') || path.starts_with(u"\\\\");
}

FileError execute(const std::u16string& file, const std::u16string& words) {
    if (const int error = ask_hook(Operation::start_process, file); error != 0)
        return file_error(static_cast<DWORD>(error));
    SHELLEXECUTEINFOW order{};
    order.cbSize = sizeof order;
    order.fMask = SEE_MASK_FLAG_NO_UI | SEE_MASK_NOASYNC;
    order.lpVerb = L"open";
    order.lpFile = wide(file);
    order.lpParameters = words.empty() ? nullptr : wide(words);
    order.nShow = SW_SHOWNORMAL;
    return ShellExecuteExW(&order) != FALSE ? FileError{} : file_error(GetLastError());
}

}  // namespace

std::string user_language() {
    wchar_t name[LOCALE_NAME_MAX_LENGTH] = {};
    return GetUserDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH) > 0 ? to_utf8(from_wide(name))
                                                                      : std::string();
}

std::optional<std::int64_t> free_space(const std::u16string& folder) {
    std::u16string at = absolute_path(folder);
    if (ask_hook(Operation::inspect, at) != 0) return std::nullopt;
    ULARGE_INTEGER bytes{};
    while (GetDiskFreeSpaceExW(NativePath(at).get(), &bytes, nullptr, nullptr) == FALSE) {
        const DWORD error = GetLastError();
        const std::u16string above = folder_of(at);
        const bool missing = error == ERROR_PATH_NOT_FOUND || error == ERROR_FILE_NOT_FOUND;
        if (!missing || above == at || above.empty()) return std::nullopt;
        at = above;
    }
    return static_cast<std::int64_t>(bytes.QuadPart);
}

FileError open_with_desktop(const std::u16string& target) {
    const bool address = istarts_with(target, u"http://") || istarts_with(target, u"https://");
    if (!address && (!is_absolute(target) || path_kind(target) == PathKind::none))
        return file_error(ERROR_FILE_NOT_FOUND);
    return execute(target, {});
}

FileError show_in_folder(const std::u16string& path) {
    if (!is_absolute(path) || path.find(u'"') != std::u16string::npos)
        return file_error(ERROR_FILE_NOT_FOUND);
    if (path_kind(path) == PathKind::none) return open_with_desktop(folder_of(path));
    return execute(u"explorer.exe", u"/select,\"" + path + u"\"");
}

FileError move_to_bin(const std::u16string& path, BinItem& item) {
    const std::u16string from = absolute_path(path);
    if (path_kind(from) == PathKind::none) return file_error(ERROR_FILE_NOT_FOUND);
    if (const FileError error = ask_file_hook(Operation::rename, from); !error.ok()) return error;
    std::u16string list = from;
    list.push_back(u'\0');  // a list of one name ends with two
    SHFILEOPSTRUCTW order{};
    order.wFunc = FO_DELETE;
    order.pFrom = wide(list);
    // Where the drive has no bin the system asks before it deletes.
    order.fFlags = FOF_ALLOWUNDO | FOF_NOCONFIRMATION | FOF_WANTNUKEWARNING | FOF_NOERRORUI;
    const int error = SHFileOperationW(&order);
    if (error != 0) return file_error(static_cast<DWORD>(error));
    if (order.fAnyOperationsAborted != FALSE) return file_error(ERROR_CANCELLED);
    item = {from, {}, {}};
    return {};
}

FileError take_from_bin(const BinItem& /*item*/) {
    return file_error(ERROR_FILE_NOT_FOUND);  // the recycle bin does not say where it put the file
}

}  // namespace vantlow
