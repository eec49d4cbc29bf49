#include "support/unix_shell.h"

#include <windows.h>

#include "platform/file.h"

namespace vantlow::test {

std::optional<std::string> unix_path(const std::u16string& path) {
    // Wine's own; no other system has it.
    using Translate = char*(CDECL*)(const wchar_t*);
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    const auto translate = reinterpret_cast<Translate>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "wine_get_unix_file_name")));
    if (translate == nullptr) return std::nullopt;
    const std::u16string whole = absolute_path(path);
    char* const found = translate(reinterpret_cast<const wchar_t*>(whole.c_str()));
    if (found == nullptr) return std::nullopt;
    std::string text = found;
    HeapFree(GetProcessHeap(), 0, found);
    return text;
}

}  // namespace vantlow::test
