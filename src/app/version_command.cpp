#include "app/version_command.h"

#include <string>

#include "base/text.h"
#include "platform/console.h"
#include "platform/process.h"

namespace vantlow {

Exit run_version(CFerrywellApp& app, const GlobalOptions& /*global*/) {
    std::string text = "Vantlow " + to_utf8(app.version()) + "\n" + std::string(platform_name()) + "\n";
    for (const auto& [library, loaded] : loaded_libraries(app.libraries())) {
        text += library + ": " + (loaded ? "loaded" : "not found") + "\n";
    }
    write_stream(Stream::output, text);
    return Exit::done;
}

}  // namespace vantlow
