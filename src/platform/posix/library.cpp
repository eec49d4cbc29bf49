#include "platform/library.h"

#include <dlfcn.h>

#include "base/text.h"
#include "platform/fault_hook.h"

namespace vantlow {

Library::~Library() {
    if (native_ != nullptr) ::dlclose(native_);
}

bool Library::load(const std::u16string& path) noexcept {
    // A bare name would be looked for in the system's folders.
    const std::string native = to_utf8(path);
    const bool may_load = native.starts_with('/') && ask_hook(Operation::load_library, path) == 0;
    void* const loaded = may_load ? ::dlopen(native.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (native_ != nullptr) ::dlclose(native_);
    native_ = loaded;
    return loaded != nullptr;
}

void* Library::find(const char* operation) const noexcept {
    if (native_ == nullptr || ask_hook(Operation::find_operation, operation) != 0) return nullptr;
    return ::dlsym(native_, operation);
}

std::u16string Library::file_name(std::string_view library) {
    return to_utf16(library) + u".so";
}

std::u16string Library::system_path(std::string_view) {
    return {};
}

}  // namespace vantlow
