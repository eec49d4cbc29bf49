#include "platform/file_copy.h"

#include <vector>

#include "platform/fault_hook.h"
#include "platform/file_marks.h"
#include "platform/file_parts.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_mark = 64 * 1024;
constexpr DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// The mark that makes Windows ask before it runs the file; a copy is no more to be trusted.
void copy_origin(const std::u16string& from, const std::u16string& to) {
    if (!can_bear_mark(from) || !can_bear_mark(to)) return;
    const std::u16string stream = u":Zone.Identifier";
    std::vector<std::byte> mark;
    if (!read_file(absolute_path(from) + stream, largest_mark, mark).ok()) return;  // most have none
    File file;
    if (file.open(absolute_path(to) + stream, OpenMode::truncate).ok())
        static_cast<void>(file.write_at(0, mark));
}

}  // namespace

// The mark first: writing it changes the time.
FileError copy_marks(const std::u16string& from, const std::u16string& to) {
    if (FileError error = ask_file_hook(Operation::mark, to, 0, 0); !error.ok()) return error;
    copy_origin(from, to);
    FILETIME written{};
    const Handle source(
        CreateFileW(NativePath(from).get(), FILE_READ_ATTRIBUTES, share, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!source.is_valid() || GetFileTime(source.get(), nullptr, nullptr, &written) == 0)
        return file_error(GetLastError());
    const Handle copy(
        CreateFileW(NativePath(to).get(), FILE_WRITE_ATTRIBUTES, share, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!copy.is_valid() || SetFileTime(copy.get(), nullptr, nullptr, &written) == 0)
        return file_error(GetLastError());
    return {};
}

}  // namespace vantlow
