#include "platform/system_cookies.h"

namespace vantlow {

std::u16string system_cookies(const std::u16string& /*address*/) {
    return {};
}

}  // namespace vantlow
