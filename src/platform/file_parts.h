// What the file operations of both systems share.
#pragma once

#include "platform/fault_hook.h"
#include "platform/file.h"

namespace vantlow {

/// What a number of the system means for a file.
FileError file_error_of(int system_error) noexcept;

/// The hook's answer as a file's.
inline FileError ask_file_hook(Operation operation, std::u16string_view path, std::int64_t offset = 0,
                               std::int64_t length = 0) noexcept {
    const int error = ask_hook(operation, path, offset, length);
    if (error == 0) [[likely]]
        return {};
    return file_error_of(error);
}

/// True when files can be made in a folder that is there.
bool can_write_folder(const std::u16string& folder);

/// Makes one folder; fine when it is there.
FileError make_one_folder(const std::u16string& path);

}  // namespace vantlow
