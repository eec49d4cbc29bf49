// The system's declarations; text, errors and handles on their way to and from it; who may open a new file.
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

#include <memory>
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

/// A path in the form that the system takes: with "\" and, where it is long, with the prefix that lifts the
/// limit on its length. A path with a zero character inside names nothing.
class NativePath {
  public:
    explicit NativePath(const std::u16string& path);
    [[nodiscard]] const wchar_t* get() const noexcept { return wide(text_); }
    [[nodiscard]] const std::u16string& text() const noexcept { return text_; }

  private:
    std::u16string text_;
};

/// The fault that a system error number stands for in a file operation.
FileError file_error(DWORD error) noexcept;
/// The same for a call that was given a path: the path tells a long name and a folder from other faults.
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

/// The security of a file that only its owner may open. Without `wanted` it is the system's default.
class OwnerOnly {
  public:
    explicit OwnerOnly(bool wanted);

    [[nodiscard]] bool ok() const noexcept { return error_.ok(); }
    [[nodiscard]] FileError error() const noexcept { return error_; }
    /// The attributes for CreateFileW; null for the system's default.
    [[nodiscard]] SECURITY_ATTRIBUTES* attributes() const noexcept { return attributes_.get(); }

  private:
    FileError error_;
    std::unique_ptr<void, HLOCAL (*)(HLOCAL)> descriptor_;
    std::unique_ptr<SECURITY_ATTRIBUTES> attributes_;
};

}  // namespace vantlow
