// Parts that the file operations of both systems share: the posix/ and win32/ halves of file.h implement
// these, and file.cpp calls them.
#pragma once

#include "platform/fault_hook.h"
#include "platform/file.h"

namespace vantlow {

/// The fault that a system error number (errno, GetLastError) stands for when a file operation failed with
/// it.
FileError file_error_of(int system_error) noexcept;

/// Asks the fault hook before a file operation; its answer as a file error, ok when the operation may go on.
/// `offset` and `length` are bytes, 0 where the operation has none.
inline FileError ask_file_hook(Operation operation, std::u16string_view path, std::int64_t offset = 0,
                               std::int64_t length = 0) noexcept {
    const int error = ask_hook(operation, path, offset, length);
    if (error == 0) [[likely]]
        return {};
    return file_error_of(error);
}

/// True when files can be made in this folder, which exists. Leaves nothing behind.
bool can_write_folder(const std::u16string& folder);

/// Makes one folder below an existing one; ok when it exists already.
FileError make_one_folder(const std::u16string& path);

}  // namespace vantlow
