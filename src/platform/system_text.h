// The system's sentences for its error numbers.
#pragma once

#include <string>

namespace vantlow {

/// UTF-8, without line end; never empty.
std::string system_text(int system_error);

}  // namespace vantlow
