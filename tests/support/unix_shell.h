// Programs of a Unix system: natively, and those of the system below Wine.
#pragma once

#include <optional>
#include <string>

#include "support/temp_folder.h"

namespace vantlow::test {

/// The file of such a system that a path stands for; none on a Windows system without one.
std::optional<std::string> unix_path(const std::u16string& path);

/// True where /bin/sh and that program are.
bool has_unix_program(const std::string& path);

/// Runs commands of /bin/sh in a folder to their end. Throws std::runtime_error with what they wrote when
/// their status is not 0. Wine starts such programs but neither waits for them nor tells their status: files
/// do.
void run_in_shell(const TempFolder& folder, const std::string& commands);

/// A program that runs beside the test, at most five minutes; ended by its id when the object ends.
class ShellProgram {
  public:
    /// One simple command, whose working folder is `folder`.
    ShellProgram(const TempFolder& folder, const std::string& command);
    ~ShellProgram();
    ShellProgram(const ShellProgram&) = delete;
    ShellProgram& operator=(const ShellProgram&) = delete;

  private:
    TempFolder scratch_;
};

}  // namespace vantlow::test
