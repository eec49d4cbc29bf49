// What the errors of the name functions mean.
#pragma once

#include <string>

namespace vantlow {

/// True when the name does not exist, rather than nobody having answered.
bool is_definite_name_error(int error) noexcept;
std::string name_error_text(int error);

}  // namespace vantlow
