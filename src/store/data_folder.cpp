#include "store/data_folder.h"

#include <algorithm>

#include "platform/file.h"

namespace vantlow {
namespace {

bool is_default(std::u16string_view setting) noexcept {
    return setting.empty() || setting == u"." || setting == u".\\" || setting == u"./";
}

std::u16string with_separator(std::u16string folder, char16_t separator) {
    if (folder.empty() || folder.back() != separator) folder.push_back(separator);
    return folder;
}

std::u16string base_folder(const DataFolderSources& sources) {
    if (!is_default(sources.setting)) return sources.setting;
    const auto at = sources.program.rfind(sources.separator);
    // A path without any folder means the current one, and not the root that a lone separator would mean.
    if (at == std::u16string::npos) return u".";
    return sources.program.substr(0, at);
}

}  // namespace

bool is_in_build_folder(const std::u16string& program) {
    const std::u16string folder = folder_of(program);
    // Programs stand in the build folder itself or in one below it.
    for (const std::u16string& build : {folder, folder_of(folder)}) {
        if (path_kind(join_path(build, u"CMakeCache.txt")) == PathKind::file) return true;
    }
    return false;
}

std::u16string data_folder(const DataFolderSources& sources) {
    std::u16string user = sources.user;
    // The account's name must become one name in the path, whatever is in it.
    std::replace(user.begin(), user.end(), sources.separator, u'_');
    return with_separator(base_folder(sources), sources.separator) + user + u"'s temp";
}

std::u16string writable_data_folder(const DataFolderSources& sources,
                                    const std::function<bool(const std::u16string&)>& can_write) {
    std::u16string folder = data_folder(sources);
    if (!is_default(sources.setting) || sources.user_data.empty() || can_write(folder)) return folder;
    return with_separator(sources.user_data, sources.separator) + u"vantlow";
}

}  // namespace vantlow
