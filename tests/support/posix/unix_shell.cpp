#include "support/unix_shell.h"

#include "base/text.h"
#include "platform/file.h"

namespace vantlow::test {

std::optional<std::string> unix_path(const std::u16string& path) {
    return to_utf8(absolute_path(path));
}

}  // namespace vantlow::test
