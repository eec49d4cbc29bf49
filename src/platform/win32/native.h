// The system's declarations, and text and errors on their way to and from it.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
// after it
#include <windows.h>

#include <string>
#include <string_view>

#include "platform/file.h"

namespace vantlow {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

inline const wchar_t* wide(const std::u16string& text) noexcept {
    return reinterpret_cast<const wchar_t*>(text.c_str());
}

inline std::u16string from_wide(std::wstring_view text) {
    return {text.begin(), text.end()};
}

/// A path as the system takes it: with "\" and, where it is long, in the form without length limit. A path
/// with a zero inside names nothing.
class NativePath {
  public:
    explicit NativePath(const std::u16string& path);
    [[nodiscard]] const wchar_t* get() const noexcept { return wide(text_); }
    [[nodiscard]] const std::u16string& text() const noexcept { return text_; }

  private:
    std::u16string text_;
};

/// What a system error number means for a file.
FileError file_error(DWORD error) noexcept;
/// The same for a call that was given a path, which can tell more.
FileError file_error(DWORD error, const NativePath& path) noexcept;

/// Owns a handle that CloseHandle releases.
class Handle {
  public:
    explicit Handle(HANDLE handle) noexcept : handle_(handle) {}
    ~Handle() {
        if (is_valid()) CloseHandle(handle_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    [[nodiscard]] bool is_valid() const noexcept {
        return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr;
    }
    [[nodiscard]] HANDLE get() const noexcept { return handle_; }

  private:
    HANDLE handle_;
};

}  // namespace vantlow
