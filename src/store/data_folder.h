// The place where the program keeps its files.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vantlow {

/// The facts that decide where the data folder is.
struct DataFolderSources {
    std::u16string setting;  ///< "Settings"/"DataFolder"; ".\", "./", "." and empty mean the program's folder
    std::u16string program;  ///< full path of the program file
    std::u16string user;     ///< logon name; empty when it is not known
    std::u16string user_data;  ///< the user's own folder for application data; empty when there is none
    char16_t separator = u'/';
};

/// True when a program (a full path) lies in a folder that CMake builds in: all of that may be thrown away at
/// any time.
bool is_in_build_folder(const std::u16string& program);

/// The data folder, without a separator at its end: "BASE/USER's temp", where BASE is the folder of the
/// setting.
std::u16string data_folder(const DataFolderSources& sources);

/// The data folder in which the program can keep its files. It is "vantlow" in the user's folder for
/// application data where the setting names no folder and the program's own cannot be written or must not be
/// (belongs_to_packages, is_in_build_folder); else data_folder(). A folder that the setting names stays the
/// data folder, writable or not: jobs must not seem lost because a disk is absent. `can_write` is called with
/// the data folder, which need not exist yet.
std::u16string writable_data_folder(const DataFolderSources& sources,
                                    const std::function<bool(const std::u16string&)>& can_write);

}  // namespace vantlow
