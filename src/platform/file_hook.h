// What the file operations of both systems share.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "platform/file.h"

namespace vantlow {

extern std::atomic<FileHook*> current_file_hook;

/// The hook's answer; without a hook one load.
inline FileError ask_hook(FileOperation operation, std::u16string_view path, std::int64_t offset = 0,
                          std::int64_t length = 0) noexcept {
    FileHook* const hook = current_file_hook.load(std::memory_order_acquire);
    return hook == nullptr ? FileError{} : hook->before(operation, path, offset, length);
}

/// True when files can be made in a folder that is there.
bool can_write_folder(const std::u16string& folder);

/// Makes one folder; fine when it is there.
FileError make_one_folder(const std::u16string& path);

}  // namespace vantlow
