// The challenges of an HTTP answer's "...-Authenticate" fields.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

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
