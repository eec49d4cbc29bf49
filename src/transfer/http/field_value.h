// Values of header fields that have a grammar of their own: parameters, and the challenges of logins.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// One parameter. Text without "=", like a disposition's type, is a name without a value.
struct Parameter {
    std::string name;   ///< lower case
    std::string value;  ///< quotes and their backslashes removed
};

/// Takes the next parameter off the front; none at the end. Quoted values may hold semicolons (RFC
/// 9110, 5.6.6).
std::optional<Parameter> next_parameter(std::string_view& rest);

/// One challenge of a scheme that is known here (RFC 9110, 11.3).
struct AuthChallenge {
    std::string scheme;  ///< "negotiate", "ntlm", "digest" or "basic"
    std::string text;    ///< what stands behind the scheme, up to the next challenge
};

/// The challenges of one field's value, those of other schemes left out. One field may hold several, with
/// commas between them as between the parameters of each (RFC 9110, 11.6.1).
std::vector<AuthChallenge> read_challenges(std::string_view value);
/// Those of all fields.
std::vector<AuthChallenge> read_challenges(const std::vector<std::string>& values);

}  // namespace vantlow
