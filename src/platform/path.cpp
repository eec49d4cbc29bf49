#include "platform/file.h"

#include <utility>

namespace vantlow {
namespace {

bool is_separator(char16_t c) noexcept {
    return c == u'/' || c == path_separator();
}

std::size_t last_separator(std::u16string_view path) noexcept {
    std::size_t at = path.size();
    while (at > 0 && !is_separator(path[at - 1])) --at;
    return at == 0 ? std::u16string_view::npos : at - 1;
}

// This is a pointer and no string, because mingw-w64 frees a thread's variables before it destroys them.
thread_local const std::u16string* current_folder = nullptr;  // its CurrentFolder's

}  // namespace

CurrentFolder::CurrentFolder(std::u16string folder) {
    current_folder = new const std::u16string(std::move(folder));
}

CurrentFolder::~CurrentFolder() {
    delete std::exchange(current_folder, nullptr);
}

const std::u16string& CurrentFolder::get() noexcept {
    static const std::u16string none;
    return current_folder != nullptr ? *current_folder : none;
}

std::u16string join_path(std::u16string_view folder, std::u16string_view name) {
    std::u16string path(folder);
    if (!path.empty() && !is_separator(path.back())) path.push_back(path_separator());
    return path.append(name);
}

std::u16string folder_of(std::u16string_view path) {
    const std::size_t at = last_separator(path);
    if (at == std::u16string_view::npos) return {};
    const std::u16string_view folder = path.substr(0, at);
    // "/name" stands in "/", "C:\name" in "C:\": without the separator they would mean the current folder.
    const bool root =
        folder.empty() || (path_separator() == u'\\' && folder.size() == 2 && folder[1] == u':');
    return std::u16string(root ? path.substr(0, at + 1) : folder);
}

std::u16string name_of(std::u16string_view path) {
    const std::size_t at = last_separator(path);
    return std::u16string(at == std::u16string_view::npos ? path : path.substr(at + 1));
}

}  // namespace vantlow
