#include "app/cli/version_command.h"

#include <string>

#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

namespace vantlow {

Exit run_version(CFerrywellApp& app, const GlobalOptions& /*global*/) {
    std::string text = "Vantlow " + to_utf8(app.version()) + "\n" + std::string(platform_name()) + "\n";
    for (const auto& [library, loaded] : loaded_libraries(app.libraries())) {
        // One that Vantlow does not bring yet is no library that is missing.
        const bool is_to_come = library.starts_with("libKAD.") || library.starts_with("libBTDHT.") ||
                                library.starts_with("libcrypto5.");
        if (is_to_come && !loaded) continue;
        text += library + ": " + (loaded ? "loaded" : "not found") + "\n";
    }
    write_stream(Stream::output, text);
    return Exit::done;
}

}  // namespace vantlow
