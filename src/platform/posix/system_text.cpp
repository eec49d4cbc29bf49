#include "platform/system_text.h"

#include <cstring>

namespace vantlow {

std::string system_text(int system_error) {
    char space[256] = {};
    return strerror_r(system_error, space,
                      sizeof space);  // the GNU one: it may answer with a text of its own
}

}  // namespace vantlow
