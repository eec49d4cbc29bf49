#include "platform/library.h"

#include <dlfcn.h>

#include <utility>

#include "base/text.h"

namespace vantlow {

Library::Library(Library&& other) noexcept : native_(std::exchange(other.native_, nullptr)) {}

Library& Library::operator=(Library&& other) noexcept {
    std::swap(native_, other.native_);
    return *this;
}

Library::~Library() {
    if (native_ != nullptr) ::dlclose(native_);
}

bool Library::load(const std::u16string& path) noexcept {
    // A bare name would be looked for in the system's folders.
    const std::string native = to_utf8(path);
    void* const loaded = native.starts_with('/') ? ::dlopen(native.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (native_ != nullptr) ::dlclose(native_);
    native_ = loaded;
    return loaded != nullptr;
}

void* Library::find(const char* operation) const noexcept {
    return native_ == nullptr ? nullptr : ::dlsym(native_, operation);
}

std::u16string Library::file_name(std::string_view library) {
    return to_utf16(library) + u".so";
}

std::u16string Library::system_path(std::string_view) {
    return {};
}

}  // namespace vantlow
