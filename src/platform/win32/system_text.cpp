#include "platform/system_text.h"

#include "base/text.h"
#include "platform/win32/native.h"

namespace vantlow {

std::string system_text(int system_error) {
    wchar_t space[512];
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    DWORD length =
        FormatMessageW(flags, nullptr, static_cast<DWORD>(system_error), 0, space, std::size(space), nullptr);
    while (length > 0 && (space[length - 1] <= L' ' || space[length - 1] == L'.')) --length;
    if (length == 0) return print("System error %d", system_error);
    return to_utf8(from_wide({space, length}));
}

}  // namespace vantlow
