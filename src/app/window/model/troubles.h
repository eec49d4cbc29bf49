// Reasons of failures in the user's language. The engine tells them in English, as the log has them.
#pragma once

#include <string>
#include <string_view>

namespace vantlow {

/// The reason as it may stand in a control: where its beginning is a sentence that the catalogue has, in the
/// user's language; what stands behind it (a server's words, an address, the system's reason) stays as it is.
std::string trouble_text(std::string_view english);

/// One sentence or two on what helps against this failure, in the user's language; empty where nothing is
/// known to. `english`: as for trouble_text().
std::string advice_on(std::string_view english);

}  // namespace vantlow
