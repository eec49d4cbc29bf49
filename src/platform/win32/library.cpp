#include "platform/library.h"

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

HMODULE module_of(void* native) noexcept {
    return static_cast<HMODULE>(native);
}

// "C:\..." or "\\server\...".
bool is_full_path(const std::u16string& path) noexcept {
    const bool drive = path.size() > 2 && path[1] == u':' && (path[2] == u'\\' || path[2] == u'/');
    return drive || path.starts_with(u"\\\\");
}

HMODULE load_module(const std::u16string& path) noexcept {
    DWORD before = 0;
    // The system must show no message windows about damaged files.
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &before);
    HMODULE loaded = LoadLibraryExW(NativePath(path).get(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    SetThreadErrorMode(before, nullptr);
    return loaded;
}

}  // namespace

Library::~Library() {
    if (native_ != nullptr) FreeLibrary(module_of(native_));
}

bool Library::load(const std::u16string& path) noexcept {
    // A bare name would be looked for in the system's folders.
    const bool may_load = is_full_path(path) && ask_hook(Operation::load_library, path) == 0;
    HMODULE loaded = may_load ? load_module(path) : nullptr;
    if (native_ != nullptr) FreeLibrary(module_of(native_));
    native_ = loaded;
    return loaded != nullptr;
}

void* Library::find(const char* operation) const noexcept {
    if (native_ == nullptr || ask_hook(Operation::find_operation, operation) != 0) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(module_of(native_), operation));
}

std::u16string Library::file_name(std::string_view library) {
    return to_utf16(library) + u".dll";
}

std::u16string Library::system_path(std::string_view library) {
    std::wstring folder(MAX_PATH, L'\0');
    const UINT size = GetSystemDirectoryW(folder.data(), MAX_PATH);
    if (size == 0 || size >= MAX_PATH) return {};
    folder.resize(size);
    return join_path(from_wide(folder), file_name(library));
}

}  // namespace vantlow
