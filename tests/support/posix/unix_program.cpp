#include "support/unix_program.h"

#include "base/text.h"
#include "platform/file.h"

namespace vantlow::test {

bool can_start_unix_programs() {
    return true;
}

std::string unix_path(const std::u16string& path) {
    return to_utf8(absolute_path(path));
}

std::u16string own_path(const std::u16string& unix_file) {
    return unix_file;
}

}  // namespace vantlow::test
