// A process that stays with its data folder: it runs the jobs, and the commands that other starts hand over.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "app/process/application.h"
#include "app/process/exit_status.h"
#include "engine/engine.h"
#include "platform/console.h"
#include "platform/frame.h"
#include "platform/thread_pool.h"

namespace vantlow {

/// The instance behind the desktop start, and the same for as long as `vantlow start` runs jobs. Holds the
/// lock of the data folder already. Made and used by the thread that owns the store.
class Resident {
  public:
    struct Display {
        std::chrono::milliseconds interval{0};  ///< 0: nothing is shown
        std::function<void()> show;
    };
    Resident(CFerrywellApp& app, Engine& engine)
        : app_(app), engine_(engine), connections_(&app.libraries().secur) {}
    ~Resident();
    Resident(const Resident&) = delete;
    Resident& operator=(const Resident&) = delete;

    /// Opens the frame and tells in the data folder where it is.
    /// `question_time`, `gathers_log`: see Engine::Running.
    bool open(Frame::Role role, std::chrono::milliseconds question_time, bool gathers_log,
              std::string& error);
    [[nodiscard]] ThreadPool& threads() noexcept { return threads_; }
    /// Ends when nothing is left to run, instead of staying until it is told to.
    void end_when_idle(Display display);
    /// Runs until quit, Ctrl-C (a second one does not wait), the end of the session, or idleness; then ends
    /// all jobs and saves everything. Exit::failed when that could not be saved, Exit::interrupted after
    /// Ctrl-C.
    Exit run();

  private:
    enum Timer { tick_timer = 1, save_timer = 2, display_timer = 3 };
    void on_timer(int timer);
    void on_request(const std::string& request, const Frame::Events::Reply& reply);
    void wake();
    void look_whether_idle();
    void look_at_memory();
    bool close();
    bool publish(std::string& error);
    static void on_interrupt(void* context, int count);

    CFerrywellApp& app_;
    Engine& engine_;
    ConnectionServices connections_;
    ThreadPool threads_;
    std::unique_ptr<Frame> frame_;
    std::optional<InterruptWatch> watch_;  ///< from the frame's beginning on; ends before it
    Display display_;
    bool ends_when_idle_ = false;
    bool used_memory_ = false;  ///< since some was given back last
    Clock::time_point next_give_back_{};
    bool closed_ = false;
    bool saved_ = true;
    std::atomic<bool> woken_{false};
};

}  // namespace vantlow
