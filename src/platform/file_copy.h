// The marks of a file that its copy takes over beside the bytes.
#pragma once

#include <string>

#include "platform/file.h"

namespace vantlow {

/// Gives a file, which is closed, what the system keeps beside another one's bytes: the time of its last
/// change, as exactly as the file system keeps times; on Linux who may read and write it; on Windows the mark
/// of where it came from, where both have room for one. The time is what the call may fail for.
FileError copy_marks(const std::u16string& from, const std::u16string& to);

}  // namespace vantlow
