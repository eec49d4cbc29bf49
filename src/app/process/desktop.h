// The graphical side of the process, where the program has one: it knows no more of it than stands here.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/engine.h"

namespace vantlow {

/// The resident program, as its window sees it. Everything is for the thread that owns the store.
class DesktopHost {
  public:
    DesktopHost() = default;
    DesktopHost(const DesktopHost&) = delete;
    DesktopHost& operator=(const DesktopHost&) = delete;
    virtual ~DesktopHost() = default;

    [[nodiscard]] virtual Engine& engine() noexcept = 0;
    [[nodiscard]] virtual Settings& settings() noexcept = 0;
    /// Has the window run this thread: `wake` (any thread) asks for a turn() soon. `window`: the system's
    /// handle of the main window (Windows), or null.
    virtual void be_hosted(std::function<void()> wake, void* window) = 0;
    /// The window begins minimised, or in the tray where closing it goes there.
    [[nodiscard]] virtual bool starts_minimized() const noexcept = 0;
    /// Does what is to be done for the engine and for other starts of the program; waits for nothing. False
    /// once the process is to end.
    virtual bool turn() = 0;
    /// The system follows a setting that was changed, where it is one of those (system_settings.h).
    virtual void follow_setting(std::u16string_view section, std::u16string_view key) = 0;
    /// Runs a command of the command line ("browser", "install") as one that another start handed over.
    /// Returns its complaints, UTF-8; empty where it did all.
    virtual std::string run_command(const std::vector<std::string>& words) = 0;
    /// Asks for the end of the process.
    virtual void quit() noexcept = 0;
};

/// A window, and the display that it stands on. Made once a process; the thread that owns the store calls
/// everything.
class Desktop {
  public:
    Desktop() = default;
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;
    virtual ~Desktop() = default;

    /// Connects to the display. False, with a sentence in `error`, where there is none that can be used: the
    /// resident program runs without a window then.
    virtual bool open(std::string& error) = 0;
    /// Shows the window and runs until the host is to end, or the person ends it. Called once, after open().
    virtual void run(DesktopHost& host) = 0;
    /// Another start of the program came: the window is shown above the others.
    virtual void come_to_front() = 0;
};

}  // namespace vantlow
