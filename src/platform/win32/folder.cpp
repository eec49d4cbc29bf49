#include "platform/folder.h"

#include <memory>
#include <span>

#include "base/codes.h"
#include "base/text.h"
#include "platform/file_parts.h"
#include "platform/process.h"
#include "platform/win32/native.h"

namespace vantlow {

FileError list_folder(const std::u16string& folder, std::vector<FolderEntry>& entries) {
    entries.clear();
    if (FileError error = ask_file_hook(Operation::list_folder, folder); !error.ok()) return error;
    const NativePath pattern(join_path(folder.empty() ? u"." : folder, u"*"));
    WIN32_FIND_DATAW found{};
    HANDLE list = FindFirstFileExW(pattern.get(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
    if (list == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        // The root of an empty drive has not even "." in it.
        return error == ERROR_FILE_NOT_FOUND ? FileError{} : file_error(error, pattern);
    }
    const std::unique_ptr<void, BOOL (*)(HANDLE)> owner(list, [](HANDLE open) { return FindClose(open); });
    do {
        FolderEntry entry;
        entry.name = from_wide(found.cFileName);
        if (entry.name == u"." || entry.name == u"..") continue;
        const DWORD attributes = found.dwFileAttributes;
        entry.is_link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        entry.kind = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::folder : PathKind::file;
        if ((attributes & FILE_ATTRIBUTE_DEVICE) != 0) entry.kind = PathKind::other;
        entry.size =
            static_cast<std::int64_t>(std::uint64_t{found.nFileSizeHigh} << 32U | found.nFileSizeLow);
        entries.push_back(std::move(entry));
    } while (FindNextFileW(list, &found));
    const DWORD error = GetLastError();
    return error == ERROR_NO_MORE_FILES ? FileError{} : file_error(error);
}

FileError make_temporary_folder(const std::u16string& within, std::u16string& path) {
    wchar_t place[MAX_PATH + 2] = {};
    const DWORD length = GetTempPathW(MAX_PATH + 1, place);
    if (within.empty() && (length == 0 || length > MAX_PATH + 1)) return file_error(GetLastError());
    unsigned char random[16];
    random_guid(random);
    const std::u16string name = u"vantlow-" + to_utf16(to_hex(std::as_bytes(std::span(random))));
    path = join_path(within.empty() ? from_wide({place, length}) : within, name);
    const NativePath native(path);
    const OwnerOnly security(true);
    if (!security.ok()) return security.error();
    return CreateDirectoryW(native.get(), security.attributes()) ? FileError{}
                                                                 : file_error(GetLastError(), native);
}

FileError remove_folder(const std::u16string& path) noexcept {
    return RemoveDirectoryW(NativePath(path).get()) ? FileError{} : file_error(GetLastError());
}

}  // namespace vantlow
