// The process that stays with its data folder: it runs the jobs, and the commands that other starts hand
// over.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "app/cli/command.h"
#include "app/process/application.h"
#include "app/rpc/control_api.h"
#include "engine/engine.h"
#include "platform/console.h"
#include "platform/event_loop.h"
#include "platform/thread.h"

namespace vantlow {

/// The instance that the start with links and `vantlow serve` make, and the same for as long as `vantlow
/// start` runs jobs. The process holds the lock of the data folder already. Made and used by the thread that
/// owns the store.
class Resident : private DesktopHost {
  public:
    struct Display {
        std::chrono::milliseconds interval{0};  ///< 0: nothing is shown
        std::function<void()> show;
    };
    /// `read` reads the command lines that other starts hand over.
    Resident(CFerrywellApp& app, Engine& engine, ReadWords read)
        : app_(app), engine_(engine), read_(read), connections_(&app.libraries().secur) {}
    ~Resident() override;
    Resident(const Resident&) = delete;
    Resident& operator=(const Resident&) = delete;

    /// Opens the event loop and publishes its address in the data folder. `question_time` and `gathers_log`
    /// are those of Engine::Running. False with a sentence in `error` where that fails.
    bool open(EventLoop::Role role, std::chrono::milliseconds question_time, bool gathers_log,
              std::string& error);
    [[nodiscard]] ThreadPool& threads() noexcept { return threads_; }
    /// Has run() end when nothing is left to run, instead of staying until it is told to quit.
    void end_when_idle(Display display);
    /// Opens the control API where the settings ask for it, now or later. After open().
    void open_control();
    /// Has this window run the loop's thread, and stand for the process.
    void show(Desktop& desktop, bool minimized) noexcept {
        desktop_ = &desktop;
        starts_minimized_ = minimized;
    }
    /// Runs until quit, Ctrl-C (a second one does not wait), the end of the session, or idleness; then ends
    /// all jobs and saves everything. Exit::failed when that could not be saved, Exit::interrupted after
    /// Ctrl-C.
    Exit run();

  private:
    enum Timer { tick_timer = 1, save_timer = 2, display_timer = 3 };
    [[nodiscard]] Engine& engine() noexcept override { return engine_; }
    [[nodiscard]] Settings& settings() noexcept override { return app_.settings(); }
    void be_hosted(std::function<void()> wake, void* window) override;
    [[nodiscard]] bool starts_minimized() const noexcept override { return starts_minimized_; }
    bool turn() override;
    void follow_setting(std::u16string_view section, std::u16string_view key) override;
    std::string run_command(const Words& words) override;
    void quit() noexcept override { loop_->quit(); }
    void on_timer(int timer);
    void on_request(const std::string& request, const EventLoop::Events::Reply& reply);
    void wake();
    void look_whether_idle();
    void look_at_memory();
    void look_at_control();
    bool close();
    bool publish(std::string& error);
    static void on_interrupt(void* context, int count);

    CFerrywellApp& app_;
    Engine& engine_;
    ReadWords read_;
    ConnectionServices connections_;
    ThreadPool threads_;
    std::unique_ptr<EventLoop> loop_;
    std::optional<InterruptWatch> watch_;  ///< from the loop's beginning on; ends before it
    Display display_;
    Desktop* desktop_ = nullptr;
    bool starts_minimized_ = false;
    bool ends_when_idle_ = false;
    bool used_memory_ = false;  ///< since memory was given back last
    Clock::time_point next_give_back_{};
    bool closed_ = false;
    bool saved_ = true;
    std::unique_ptr<ControlApi> control_;  ///< null: nobody but other starts of the program steers this one
    std::atomic<bool> woken_{false};
};

/// Starts the resident program in a process of its own, as a start without a command's word does: with its
/// window where there is one and a display. Waits until it answers; complains where it does not.
Exit start_resident(CFerrywellApp& app, const GlobalOptions& global);

class CommandSet;

void add_serve_command(CommandSet& commands);  ///< serve
void add_start_command(CommandSet& commands);  ///< start
void add_quit_command(CommandSet& commands);   ///< quit

/// Adds the start without a command's word. In the running instance it files the jobs of the links, in the
/// first category, and starts them. Otherwise this process, which holds the lock of the data folder, becomes
/// the instance: it runs until it is told to quit, whatever becomes of its terminal. Where a terminal takes
/// its programs along, another process becomes the instance, with the same words.
void add_links_command(CommandSet& commands);

}  // namespace vantlow
