#include "app/application.h"

#include "platform/file.h"
#include "platform/process.h"
#include "platform/socket.h"
#include "store/data_folder.h"

namespace vantlow {

bool CFerrywellApp::start(const StartOptions& options, std::string& error) {
    set_default_locale();
    program_file_ = program_path();
    libraries_ = load_libraries(folder_of(program_file_));
    if (!start_sockets()) {
        error = "The system's sockets could not be started.";
        return false;
    }
    settings_ = std::make_unique<Settings>(
        options.settings_file.empty() ? open_user_settings() : open_settings_file(options.settings_file));
    const std::u16string language = settings_->text(u"Settings", u"Language");
    if (!language.empty()) language_file_ = language + u".lng";
    version_ = product_version();
    user_name_ = user_logon_name();
    const DataFolderSources sources{settings_->text(u"Settings", u"DataFolder"), program_file_, user_name_,
                                    user_data_folder(), path_separator()};
    data_folder_ = options.data_folder.empty() ? vantlow::data_folder(sources) : options.data_folder;
    return true;
}

}  // namespace vantlow
