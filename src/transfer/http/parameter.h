// The parameters of a header field's value ("; name=value").
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// One parameter. Text without "=", like a disposition's type, is a name without a value.
struct Parameter {
    std::string name;   ///< lower case
    std::string value;  ///< quotes and their backslashes removed
};

/// Takes the next parameter off the front; none at the end. Quoted values may hold semicolons (RFC
/// 9110, 5.6.6).
std::optional<Parameter> next_parameter(std::string_view& rest);

}  // namespace vantlow
