#include "platform/settings_backend.h"

#include "platform/process.h"

namespace vantlow {

std::unique_ptr<SettingsBackend> open_user_settings() {
    std::u16string folder = user_config_folder();
    // An account without a home gets the system's folder, never the current one, where anybody may have put a
    // file.
    if (folder.empty()) folder = u"/etc/xdg";
    return open_settings_file(join_path(join_path(folder, u"vantlow"), u"settings.ini"));
}

}  // namespace vantlow
