#include "platform/system_cookies.h"

#include "platform/win32/native.h"

#include <wininet.h>

namespace vantlow {

std::u16string system_cookies(const std::u16string& address) {
    constexpr DWORD longest = 64 * 1024;  // characters
    DWORD size = 0;                       // bytes, as Windows tells them
    if (!InternetGetCookieW(wide(address), nullptr, nullptr, &size) || size == 0 || size > 2 * longest)
        return {};
    std::u16string text(size / 2 + 1, u'\0');
    size = static_cast<DWORD>(text.size() * 2);
    if (!InternetGetCookieW(wide(address), nullptr, reinterpret_cast<wchar_t*>(text.data()), &size))
        return {};
    text.resize(text.find(u'\0') == std::u16string::npos ? text.size() : text.find(u'\0'));
    return text;
}

}  // namespace vantlow
