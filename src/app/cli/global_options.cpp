#include "app/cli/global_options.h"

#include "app/cli/known_settings.h"
#include "base/text.h"

namespace vantlow {

Complaint apply_overrides(const GlobalOptions& global, Settings& settings) {
    for (const std::string& entry : global.set) {
        const auto slash = entry.find('/');
        const auto equals = entry.find('=', slash == std::string::npos ? 0 : slash);
        if (slash == std::string::npos || slash == 0 || equals == std::string::npos || equals == slash + 1) {
            return "--set takes Section/Key=Value, not \"" + entry + "\".";
        }
        if (const Complaint complaint = complaint_of(entry.substr(0, equals), entry.substr(equals + 1)))
            return "--set: " + *complaint;
        settings.override_value(to_utf16(entry.substr(0, slash)),
                                to_utf16(entry.substr(slash + 1, equals - slash - 1)),
                                to_utf16(entry.substr(equals + 1)));
    }
    return std::nullopt;
}

}  // namespace vantlow
