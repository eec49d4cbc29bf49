// Programs of a Unix system: natively, and those of the system below Wine where tools/test runs the tests.
#pragma once

#include <string>
#include <string_view>

#include "support/temp_folder.h"

namespace vantlow::test {

/// The full path of such a program in the usual places, for RunningProgram and run_program(); empty where it
/// is not installed or cannot be run.
std::u16string unix_program(std::string_view name);

/// Whether a program with this full path can be run.
bool has_unix_program(const std::u16string& path);

/// What such programs call a file. RunningProgram translates arguments, folders and variables that are a path
/// and nothing else; configurations and parts of arguments are written with this. Throws std::runtime_error
/// where there is no such name.
std::string unix_path(const std::u16string& path);

/// Runs commands of /bin/sh in a folder to their end. Throws std::runtime_error with what they wrote when
/// their status is not 0.
void run_in_shell(const TempFolder& folder, const std::string& commands);

/// The system's part: whether there is somebody to start them.
bool can_start_unix_programs();
/// The system's part: how this process calls a file that is named by its Unix path.
std::u16string own_path(const std::u16string& unix_file);

}  // namespace vantlow::test
