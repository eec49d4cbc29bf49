#include "support/unix_program.h"

#include <stdexcept>

#include "base/text.h"
#include "platform/file.h"
#include "support/process_run.h"

namespace vantlow::test {

std::u16string unix_program(std::string_view name) {
    for (const char16_t* folder : {u"/usr/sbin/", u"/usr/bin/", u"/usr/local/sbin/", u"/usr/local/bin/"}) {
        const std::u16string path = folder + to_utf16(name);
        if (has_unix_program(path)) return path;
    }
    return {};
}

bool has_unix_program(const std::u16string& path) {
    return can_start_unix_programs() && path_kind(own_path(path)) == PathKind::file;
}

void run_in_shell(const TempFolder& folder, const std::string& commands) {
    const RunResult result = run_program(u"/bin/sh", {u"-c", to_utf16(commands)}, {.folder = folder.path()});
    if (result.status != 0) throw std::runtime_error(commands + "\n" + result.out + result.err);
}

}  // namespace vantlow::test
