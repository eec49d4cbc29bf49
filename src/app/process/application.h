// The application object: all that the process is prepared with before any command runs.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/process/desktop.h"
#include "engine/engine.h"
#include "platform/event_loop.h"
#include "platform/stop.h"
#include "runtime/host_names.h"
#include "runtime/tables.h"
#include "store/data_folder_lock.h"
#include "store/settings.h"

namespace vantlow {

/// The places of settings and data folder, as the command line names them.
struct StartOptions {
    std::u16string settings_file;  ///< empty: the user's own store
    std::u16string data_folder;    ///< empty: as the settings say
};

/// Lives for the whole process. Libraries stay loaded until it ends. Used from the process's first thread,
/// but for stop(), which any thread may request.
class CFerrywellApp {
  public:
    /// `desktop`: null where the program has no window; outlives the application.
    explicit CFerrywellApp(Desktop* desktop = nullptr) : desktop_(desktop) {}
    CFerrywellApp(const CFerrywellApp&) = delete;
    CFerrywellApp& operator=(const CFerrywellApp&) = delete;

    /// Prepares the process: locale, run-time libraries, sockets, settings, program path and version, data
    /// folder. False when the process cannot work (no sockets); `error` says why.
    bool start(const StartOptions& options, std::string& error);

    [[nodiscard]] Desktop* desktop() const noexcept { return desktop_; }
    [[nodiscard]] Settings& settings() noexcept { return *settings_; }
    [[nodiscard]] const LibraryTables& libraries() const noexcept { return libraries_; }
    [[nodiscard]] StopSource& stop() noexcept { return stop_; }
    [[nodiscard]] const std::u16string& program_file() const noexcept { return program_file_; }
    [[nodiscard]] const std::u16string& version() const noexcept { return version_; }
    [[nodiscard]] const std::u16string& data_folder() const noexcept { return data_folder_; }

    /// Follows a setting that names another data folder: its jobs come there at once where nobody works on
    /// either folder, else when whoever does so ends. Until then the data folder stays the one that it is,
    /// for every process.
    FileError follow_data_folder();
    /// Brings the jobs of the data folder to the one that was chosen, where another one was, and closes the
    /// engine for that. Called while nothing uses the engine. Complains where it fails; then the next process
    /// tries again. Changes the data folder, and its lock where that is held.
    void settle_data_folder();
    /// True when another data folder had been chosen before the process started.
    [[nodiscard]] bool leaves_data_folder() const noexcept { return leaves_folder_; }

    /// True when the command line or the environment named the data folder.
    [[nodiscard]] bool is_folder_named() const noexcept { return folder_named_; }

    /// The lock of the data folder, held by commands that work on it.
    [[nodiscard]] DataFolderLock& folder_lock() noexcept { return folder_lock_; }
    /// The claim to be the one instance of this user session.
    [[nodiscard]] SessionClaim& session() noexcept { return session_; }
    /// The engine of the data folder. The first call loads its store, and complains of whatever the loading
    /// found. Null, with the reason in `error`, when the store cannot be loaded. The calling thread owns the
    /// engine.
    Engine* engine(std::string& error);
    /// True where this process runs the jobs of the data folder.
    [[nodiscard]] bool runs_jobs() const noexcept { return engine_ && engine_->runs(); }
    /// The file in the data folder that the standard streams go to: where the folder is removed or replaced
    /// they go on in that file of the folder that is there then.
    void set_output_file(std::u16string path) { output_file_ = std::move(path); }
    /// The addresses at which the control API of this process listens; empty: it does not.
    [[nodiscard]] const std::vector<std::string>& control_places() const noexcept { return control_places_; }
    void set_control_places(std::vector<std::string> places) { control_places_ = std::move(places); }
    /// The options that every engine of this process is made with.
    [[nodiscard]] Engine::Options engine_options();

  private:
    [[nodiscard]] std::u16string chosen_data_folder() const;

    Desktop* const desktop_;
    StopSource stop_;
    std::unique_ptr<Settings> settings_;
    LibraryTables libraries_;
    std::optional<HostNameScope> host_names_;
    std::u16string program_file_;
    std::u16string version_;
    std::u16string data_folder_;
    bool folder_named_ = false;
    bool leaves_folder_ = false;
    std::u16string output_file_;  ///< empty: the streams are somebody else's
    SessionClaim session_;
    DataFolderLock folder_lock_;
    std::vector<std::string> control_places_;
    std::unique_ptr<Engine> engine_;  // last: it uses the above
};

}  // namespace vantlow
