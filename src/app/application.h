// The application object: what the process is prepared with before any command runs.
#pragma once

#include <memory>
#include <string>

#include "platform/stop.h"
#include "runtime/tables.h"
#include "store/settings.h"

namespace vantlow {

/// Where the store and the data folder are taken from, as the command line says.
struct StartOptions {
    std::u16string settings_file;  ///< empty: the user's own store
    std::u16string data_folder;    ///< empty: as the settings say
};

/// Lives for the whole process. Libraries stay loaded until it ends.
class CFerrywellApp {
  public:
    CFerrywellApp() = default;
    CFerrywellApp(const CFerrywellApp&) = delete;
    CFerrywellApp& operator=(const CFerrywellApp&) = delete;

    /// Prepares the process: locale, run-time libraries, sockets, language file, program path and version,
    /// logon name, data folder. False when the process cannot work (no sockets); `error` says why.
    bool start(const StartOptions& options, std::string& error);

    [[nodiscard]] Settings& settings() noexcept { return *settings_; }
    [[nodiscard]] const LibraryTables& libraries() const noexcept { return libraries_; }
    [[nodiscard]] StopSource& stop() noexcept { return stop_; }
    [[nodiscard]] const std::u16string& program_file() const noexcept { return program_file_; }
    [[nodiscard]] const std::u16string& version() const noexcept { return version_; }
    [[nodiscard]] const std::u16string& user_name() const noexcept { return user_name_; }
    [[nodiscard]] const std::u16string& data_folder() const noexcept { return data_folder_; }
    /// The language file that the settings name ("name.lng"); empty for the built-in texts.
    [[nodiscard]] const std::u16string& language_file() const noexcept { return language_file_; }

  private:
    StopSource stop_;
    std::unique_ptr<Settings> settings_;
    LibraryTables libraries_;
    std::u16string program_file_;
    std::u16string version_;
    std::u16string user_name_;
    std::u16string data_folder_;
    std::u16string language_file_;
};

}  // namespace vantlow
