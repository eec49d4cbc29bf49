// The application object: what the process is prepared with before any command runs.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "engine/engine.h"
#include "platform/frame.h"
#include "platform/stop.h"
#include "runtime/host_names.h"
#include "runtime/tables.h"
#include "store/data_folder_lock.h"
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

    /// True when the command line or the environment named the data folder.
    [[nodiscard]] bool is_folder_named() const noexcept { return folder_named_; }

    /// The lock of the data folder, held by commands that work on it.
    [[nodiscard]] DataFolderLock& folder_lock() noexcept { return folder_lock_; }
    /// The claim to be the one instance of this user session.
    [[nodiscard]] SessionClaim& session() noexcept { return session_; }
    /// The engine of the data folder; its store is loaded by the first call, which also tells on stderr what
    /// the loading has to tell. Null, with the reason in `error`, when it cannot be had. The calling thread
    /// owns it.
    Engine* engine(std::string& error);
    /// True where this process runs the jobs of the data folder.
    [[nodiscard]] bool runs_jobs() const noexcept { return engine_ && engine_->runs(); }
    /// What every engine of this process is made with.
    [[nodiscard]] Engine::Options engine_options();

  private:
    StopSource stop_;
    std::unique_ptr<Settings> settings_;
    LibraryTables libraries_;
    std::optional<HostNameScope> host_names_;
    std::u16string program_file_;
    std::u16string version_;
    std::u16string user_name_;
    std::u16string data_folder_;
    std::u16string language_file_;
    bool folder_named_ = false;
    SessionClaim session_;
    DataFolderLock folder_lock_;
    std::unique_ptr<Engine> engine_;  // last: it uses the above
};

}  // namespace vantlow
