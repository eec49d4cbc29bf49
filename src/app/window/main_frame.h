// The main window: its panes, its menus, and the round in which it follows the engine.
#pragma once

#include <wx/aui/framemanager.h>
#include <wx/frame.h>
#include <wx/infobar.h>
#include <wx/srchctrl.h>
#include <wx/timer.h>

#include <memory>
#include <string>
#include <vector>

#include "app/process/desktop.h"
#include "app/window/detail_tabs.h"
#include "app/window/drawn.h"
#include "app/window/dropping.h"
#include "app/window/end_notices.h"
#include "app/window/job_actions.h"
#include "app/window/job_pane.h"
#include "app/window/menus.h"
#include "app/window/system.h"
#include "app/window/tray.h"
#include "app/window/view_pane.h"

namespace vantlow {

/// Its parts stand in main_frame.cpp (the panes and the round), main_frame_commands.cpp, main_frame_links.cpp
/// and main_frame_layout.cpp.
class MainFrame : public wxFrame {
  public:
    MainFrame(DesktopHost& host, WindowModel& model);
    ~MainFrame() override;

    /// Shows it and lets its timer run.
    void begin();
    /// Another start of the program, or the tray, wants it in front.
    void come_to_front();
    /// Closes it for good: the process ends.
    void end();
    [[nodiscard]] bool is_ending() const noexcept { return ending_; }

  private:
    void build_panes();
    void build_bars();
    void bind();
    void take_layout();
    void give_layout();

    void round();
    void slow_round();
    void show_status();
    void show_view();
    void show_selection();
    void enable_commands();
    void follow_states();
    [[nodiscard]] bool can(Command command, const JobActions::Selected& selected) const;
    void give(Command command);
    void give_from_tray(Command command);
    void give_other(Command command);
    void give_later(Command command);
    bool give_by_key(const wxKeyEvent& event);
    void on_key(wxKeyEvent& event);
    void on_close(wxCloseEvent& event);
    void show_pane(const FramePane& pane, bool shown);
    [[nodiscard]] bool is_pane_shown(const FramePane& pane);
    void place_pane(const FramePane& pane, const PaneSide& side);
    [[nodiscard]] const PaneSide& side_of(const FramePane& pane);
    void fill_move_targets(wxMenu& menu);
    void quit();
    void first_start();
    void pop_up_jobs(const wxPoint& at);
    void pop_up_views(const wxPoint& at);
    void pop_up_spans();
    void move_to(int index);
    wxString drag_jobs();
    void drop_jobs(const View* category, const wxPoint& on_screen);
    void join_films();
    void new_jobs(const std::string& text);
    void show_job(const Guid& job);
    void take_dropped(const Dropped& dropped, const wxPoint& on_screen);
    void paste();
    void clipboard_changed();
    void take_copied();
    void ask_next();
    void ask_which_files();
    void choose_files(const Guid& job, std::size_t count, const QuestionAnswer& answer);
    void show_options();
    void show_about();
    void say(const std::string& text, int icon = wxICON_WARNING);
    void tell_about(const std::string& text);

    DesktopHost& host_;
    WindowModel& model_;
    JobActions actions_;
    wxAuiManager panes_;
    wxTimer timer_;
    int rounds_ = 0;
    std::uint64_t enabled_at_ = 0;  ///< the engine's revision when the commands were enabled last
    wxInfoBar* bar_ = nullptr;
    wxSearchCtrl* search_ = nullptr;
    ViewPane* views_ = nullptr;
    JobPane* jobs_ = nullptr;
    DetailTabs* tabs_ = nullptr;
    SpeedHistogram* speed_ = nullptr;
    DropZone* zone_ = nullptr;
    std::unique_ptr<Tray> tray_;
    std::unique_ptr<ClipboardWatch> clipboard_;
    std::unique_ptr<EndNotices> notices_;
    std::vector<Guid> move_targets_;       ///< the categories in the menu that is open
    std::vector<std::string> said_;        ///< sentences that the bar shows
    std::vector<Guid> undescribed_;        ///< added jobs, of which torrents are asked about
    std::vector<Guid> dragged_;            ///< the jobs that are being dragged
    std::vector<std::string> last_links_;  ///< of the clipboard, when it was looked at last
    Dropped copied_;                       ///< that wait for the end of another dialog
    bool is_built_ = false;                ///< before that, panes report to nobody
    bool asking_ = false;                  ///< a question's dialog is open
    bool ending_ = false;
};

}  // namespace vantlow
