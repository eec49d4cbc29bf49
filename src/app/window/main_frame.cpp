#include "app/window/main_frame.h"

#include <wx/app.h>
#include <wx/dialog.h>
#include <wx/display.h>
#include <wx/evtloop.h>
#include <wx/sizer.h>
#include <wx/statusbr.h>
#include <wx/toolbar.h>

#include <algorithm>

#include "app/process/job_view.h"
#include "app/process/known_settings.h"
#include "app/window/confirm.h"
#include "app/window/first_start.h"
#include "app/window/menus.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/options_dialog.h"
#include "app/window/pictures.h"
#include "app/window/question_dialog.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "platform/process.h"
#include "store/address.h"

namespace vantlow {
namespace {

// Four times a second, as often as the engine tells what changed.
constexpr int round_ms = 250;
constexpr int rounds_a_second = 1000 / round_ms;

enum StatusField {
    message_field,
    speed_field,
    running_field,
    waiting_field,
    space_field,
    limit_field,
    status_fields
};

// Of a first start: the list has room for all columns that it then shows, where the screen has.
wxSize first_size() {
    wxSize size = wxWindow::FromDIP(wxSize(1240, 740), nullptr);
    size.DecTo(wxDisplay(0U).GetClientArea().GetSize());
    return size;
}

}  // namespace

MainFrame::MainFrame(DesktopHost& host, WindowModel& model)
    : wxFrame(nullptr, wxID_ANY, "Vantlow", wxDefaultPosition, first_size()),
      host_(host),
      model_(model),
      actions_(*this, model, [this](const std::string& text) { say(text); }) {
    SetName("vantlow");
    SetIcons(program_icons());
    build_panes();
    build_bars();
    bind();
    views_->select(View::of_category(model_.engine.first_category()->identity));
    is_built_ = true;
    show_view();
    take_layout();
    if (wxTaskBarIcon::IsAvailable())
        tray_ = std::make_unique<Tray>(
            [this](Command command) { CallAfter([this, command] { give_from_tray(command); }); });
    show_notices_by(tray_.get());
    notices_ = std::make_unique<EndNotices>(
        *this, model_, [this] { return host_.settings().flag(setting::tell_ends) && !IsActive(); },
        [this] { come_to_front(); });
    model_.on_trouble = [this](const std::string& text) { CallAfter([this, text] { say(text); }); };
    model_.questions.on_front([this] { CallAfter([this] { ask_next(); }); });
}

MainFrame::~MainFrame() {
    timer_.Stop();
    model_.on_trouble = {};
    model_.questions.on_front({});
    notices_.reset();
    clipboard_.reset();
    panes_.UnInit();
    // The panes read from the model and from each other, not the toolkit's base class, which outlives them.
    DestroyChildren();
    if (tray_) tray_->RemoveIcon();
}

void MainFrame::build_panes() {
    ViewPane::Events of_views;
    of_views.selected = [this] { show_view(); };
    of_views.menu = [this](const wxPoint& at) { pop_up_views(at); };
    auto* const middle = new wxPanel(this);
    bar_ = new wxInfoBar(middle);
    search_ = make_search(*middle, ui(tr("Search downloads")), ui(tr("Search names, addresses and comments")),
                          [this] { jobs_->show(views_->view(), search_->GetValue()); });
    JobPane::Events of_jobs;
    of_jobs.selected = [this] { show_selection(); };
    of_jobs.opened = [this] {
        give(actions_.can(command_open, actions_.selected()) ? command_open : command_properties);
    };
    of_jobs.menu = [this](const wxPoint& at) { pop_up_jobs(at); };
    of_jobs.dragged = [this] { return drag_jobs(); };
    of_jobs.drag_ended = [this] { dragged_.clear(); };
    jobs_ = new JobPane(middle, model_, std::move(of_jobs));
    views_ = new ViewPane(this, model_.tree, std::move(of_views));
    tabs_ = new DetailTabs(this, model_);
    speed_ = new SpeedHistogram(this, model_.history, model_.status);
    auto* const column = new wxBoxSizer(wxVERTICAL);
    column->Add(bar_, wxSizerFlags().Expand());
    column->Add(search_, wxSizerFlags().Expand().Border(wxALL, FromDIP(3)));
    column->Add(jobs_, wxSizerFlags(1).Expand());
    middle->SetSizer(column);

    panes_.SetManagedWindow(this);
    const auto pane = [](const FramePane& one, const wxString& title) {
        return wxAuiPaneInfo().Name(one.name).Caption(title).CaptionVisible(false).PaneBorder(true).Floatable(
            false);
    };
    panes_.AddPane(middle, wxAuiPaneInfo().Name("jobs").CentrePane());
    panes_.AddPane(
        views_,
        pane(views_frame_pane, ui(tr("Categories"))).Left().Layer(1).BestSize(FromDIP(wxSize(245, 300))));
    panes_.AddPane(
        tabs_,
        pane(tabs_frame_pane, ui(tr("Details"))).Bottom().Position(1).BestSize(FromDIP(wxSize(420, 210))));
    panes_.AddPane(
        speed_,
        pane(speed_frame_pane, ui(tr("Speed"))).Bottom().Position(2).BestSize(FromDIP(wxSize(280, 210))));
    // Beside each other they share the room like that.
    panes_.GetPane(views_frame_pane.name).dock_proportion = 7;
    panes_.GetPane(tabs_frame_pane.name).dock_proportion = 7;
    panes_.GetPane(speed_frame_pane.name).dock_proportion = 3;
    panes_.Update();
}

void MainFrame::build_bars() {
    SetMenuBar(make_menu_bar());
    fill_toolbar(*CreateToolBar(wxTB_FLAT | wxTB_HORIZONTAL | wxTB_HORZ_TEXT));
    CreateStatusBar(status_fields);
    const int widths[status_fields] = {-4, -3, -2, -2, -2, -3};
    SetStatusWidths(status_fields, widths);
}

void MainFrame::bind() {
    Bind(wxEVT_MENU, [this](wxCommandEvent& event) {
        const int id = event.GetId();
        if (id >= command_category_first && id <= command_category_last)
            return move_to(id - command_category_first);
        if (id >= command_place_first && id <= command_place_last) {
            const auto number = static_cast<std::size_t>(id - command_place_first);
            return place_pane(frame_panes[number / std::size(pane_sides)],
                              pane_sides[number % std::size(pane_sides)]);
        }
        if (id >= command_span_first && id <= command_span_last)
            return speed_->show(static_cast<SpeedHistory::Span>(id - command_span_first));
        give(static_cast<Command>(id));
    });
    Bind(wxEVT_MENU_OPEN, [this](wxMenuEvent& event) {
        event.Skip();
        // That of the context menu has just been filled: 2,000 categories take half a second.
        if (event.GetMenu() != nullptr && event.GetMenu()->IsAttached() &&
            event.GetMenu()->FindChildItem(command_move_to) != nullptr)
            fill_move_targets(*event.GetMenu()->FindItem(command_move_to)->GetSubMenu());
        enable_commands();
    });
    Bind(wxEVT_CHAR_HOOK, [this](wxKeyEvent& event) { on_key(event); });
    Bind(wxEVT_CLOSE_WINDOW, [this](wxCloseEvent& event) { on_close(event); });
    speed_->Bind(wxEVT_CONTEXT_MENU, [this](wxContextMenuEvent&) { pop_up_spans(); });
    GetStatusBar()->Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent& event) {
        wxRect room;
        if (GetStatusBar()->GetFieldRect(limit_field, room) && room.Contains(event.GetPosition()))
            give(command_limit);
    });
    timer_.Bind(wxEVT_TIMER, [this](wxTimerEvent&) { round(); });
    const TakeDropped take = [this](const Dropped& dropped, const wxPoint& at) { take_dropped(dropped, at); };
    wxWindow& tree = views_->tree().control();
    tree.SetDropTarget(make_drop_target(tree, take));
    wxWindow& list = jobs_->table().control();
    list.SetDropTarget(make_drop_target(list, take, [this](const std::optional<wxPoint>& on_screen) {
        const bool is_ours = on_screen && !dragged_.empty() && jobs_->shows_queue();
        jobs_->table().mark_gap(is_ours ? jobs_->table().gap_at(*on_screen) : std::nullopt);
    }));
    SetDropTarget(make_drop_target(*this, take));
    zone_ = new DropZone(this, model_.live, take, [this] { come_to_front(); });
    clipboard_ =
        std::make_unique<ClipboardWatch>(*this, [this] { CallAfter([this] { clipboard_changed(); }); });
}

void MainFrame::begin() {
    const bool to_tray = tray_ && host_.settings().flag(setting::close_to_tray);
    lay_out_before_show(*this);
    if (!host_.starts_minimized()) {
        Show();
        jobs_->table().control().SetFocus();
        CallAfter([this] { first_start(); });
    } else if (!to_tray) {
        Iconize();
        Show();
    }
    timer_.Start(round_ms);
    CallAfter([this] { ask_next(); });
}

// There no view is in sight: all downloads are meant.
void MainFrame::give_from_tray(Command command) {
    const bool is_for_all = command == command_start_all || command == command_stop_all;
    if (!is_for_all) return give(command);
    actions_.start_or_stop_everything(command == command_start_all);
    host_.turn();
}

void MainFrame::come_to_front() {
    Show();
    if (IsIconized()) Restore();
    tabs_->look();
    Raise();
    RequestUserAttention(wxUSER_ATTENTION_INFO);
}

void MainFrame::end() {
    if (ending_) return;
    ending_ = true;
    timer_.Stop();
    give_layout();
    Hide();
    zone_->Hide();
    notices_.reset();
    show_notices_by(nullptr);
    tray_.reset();
    // Menus and dialogs that are open have loops of their own: they end first.
    close_of_system();
    for (wxWindow* const window : wxTopLevelWindows) {
        auto* const dialog = dynamic_cast<wxDialog*>(window);
        if (dialog != nullptr && dialog->IsModal()) dialog->EndModal(wxID_CANCEL);
    }
    // A dialog's loop is still the running one, and the toolkit's own ExitMainLoop would then do nothing.
    wxEventLoopBase* const loop = wxTheApp->GetMainLoop();
    if (loop != nullptr) loop->ScheduleExit();
}

void MainFrame::on_close(wxCloseEvent& event) {
    if (!event.CanVeto()) return host_.quit();
    event.Veto();
    if (tray_ && host_.settings().flag(setting::close_to_tray)) {
        Hide();
    } else {
        quit();
    }
}

// The engine tells what changed from within the host's turn; what is measured anew is drawn afterwards.
void MainFrame::round() {
    if (!host_.turn()) return end();
    tabs_->look();
    if (++rounds_ % rounds_a_second == 0) slow_round();
}

void MainFrame::slow_round() {
    model_.tick();
    show_status();
    follow_states();
    if (speed_->IsShownOnScreen()) speed_->Refresh();
    zone_->look();
    notices_->look();
    // A dialog within the timer's own call would hold up the timer, and with it the engine's clock.
    CallAfter([this] {
        ask_which_files();
        take_copied();
    });
    if (tray_) tray_->look(model_.status);
}

void MainFrame::show_status() {
    const auto put = [this](const std::string& text, int field) {
        const wxString wanted = ui(text);
        if (GetStatusBar()->GetStatusText(field) != wanted) SetStatusText(wanted, field);
    };
    const std::size_t selected = model_.rows.selected_count();
    std::string message = trn("%1 download", "%1 downloads", static_cast<std::int64_t>(model_.rows.size()));
    if (selected > 1)
        message += ", " + trn("%1 selected", "%1 selected", static_cast<std::int64_t>(selected));
    put(message, message_field);
    put(model_.status.speed_part(), speed_field);
    put(model_.status.running_part(), running_field);
    put(model_.status.waiting_part(), waiting_field);
    put(model_.status.space_part(), space_field);
    put(model_.status.limit_part(), limit_field);
}

// A download that is selected starts and ends by itself.
void MainFrame::follow_states() {
    if (enabled_at_ == model_.engine.revision()) return;
    if (model_.rows.selected_count() > JobPane::most_followed) return;
    enabled_at_ = model_.engine.revision();
    enable_commands();
}

void MainFrame::show_view() {
    if (!is_built_) return;
    jobs_->show(views_->view(), search_->GetValue());
    const CClassNode* const category = model_.engine.find_category(model_.tree.category_for(views_->view()));
    if (category != nullptr) model_.status.show_folder(category->folder);
    show_selection();
}

void MainFrame::show_selection() {
    if (!is_built_) return;
    const auto selected = model_.rows.selected();
    const Guid job = selected.empty() ? Guid() : selected.front();
    if (model_.details.job() != job) tabs_->show(job);
    enable_commands();
    show_status();
}

void MainFrame::show_pane(const FramePane& pane, bool shown_now) {
    if (shown_now) tabs_->look();  // it was not looked at while nobody saw it
    panes_.GetPane(pane.name).Show(shown_now);
    panes_.Update();
}

// Those beside the list reach from the top of the window to its bottom.
void MainFrame::place_pane(const FramePane& pane, const PaneSide& side) {
    wxAuiPaneInfo& info = panes_.GetPane(pane.name);
    info.Direction(side.dock).Layer(side.is_beside() ? 1 : 0).Row(0);
    panes_.Update();
}

const PaneSide& MainFrame::side_of(const FramePane& pane) {
    const int dock = panes_.GetPane(pane.name).dock_direction;
    return *std::ranges::find(pane_sides, dock, &PaneSide::dock);
}

bool MainFrame::is_pane_shown(const FramePane& pane) {
    return panes_.GetPane(pane.name).IsShown();
}

// One dialog at a time; the next question comes when it is closed.
void MainFrame::ask_next() {
    if (asking_ || ending_ || !model_.questions.front()) return;
    const Question question = *model_.questions.front();
    const CJobNode* const job = model_.engine.find(question.job);
    JobAsking asking;
    if (job != nullptr) {
        const auto target = job->user.empty() ? parse_target(job->address) : std::nullopt;
        asking = {target ? target->user : job->user, JobView::error_of(*job)};
    }
    asking_ = true;
    const auto answer = ask(*this, question, asking, [this, id = question.id] {
        return !model_.questions.front() || model_.questions.front()->id != id;
    });
    asking_ = false;
    if (ending_) return;
    const bool is_open = model_.questions.front() && model_.questions.front()->id == question.id;
    if (is_open && answer) {
        const Done done = model_.questions.answer(*answer);
        if (!done.ok()) say(sentence_of(done));
        actions_.settle();
    } else if (is_open) {
        model_.questions.put_off();
    }
    CallAfter([this] { ask_next(); });
}

void MainFrame::show_options() {
    OptionsDialog(*this, model_.settings, ProxyList(model_.engine, host_.settings())).ShowModal();
}

void MainFrame::show_about() {
    const wxString text =
        "Vantlow " + ui(to_utf8(product_version())) + "\n" + ui(platform_name()) + "\n\n" +
        ui(tr("Made with wxWidgets, under the wxWindows Library Licence. The texts of all licences are in "
              "the folder of the program's documents."));
    tell(*this, ui(tr("About Vantlow")), text);
}

// Sentences stand in the window until they are closed; the last ones stay.
void MainFrame::say(const std::string& text, int icon) {
    constexpr std::size_t most_said = 3;
    if (!bar_->IsShown()) said_.clear();
    if (std::find(said_.begin(), said_.end(), text) != said_.end()) return;
    said_.push_back(text);
    if (said_.size() > most_said) said_.erase(said_.begin());
    wxString all;
    for (const std::string& one : said_) all += (all.empty() ? "" : "\n") + as_label(shown_sentence(one));
    bar_->ShowMessage(all, icon);
}

// Tells of something that was wanted and done; empty: nothing was.
void MainFrame::tell_about(const std::string& text) {
    if (!text.empty()) say(text, wxICON_INFORMATION);
}

// Ends the program, which is asked about while downloads run.
void MainFrame::quit() {
    const auto running = static_cast<std::int64_t>(model_.engine.running());
    if (running > 0) {
        come_to_front();
        const std::string question =
            trn("%1 download is running. It goes on when Vantlow is started again. Exit?",
                "%1 downloads are running. They go on when Vantlow is started again. Exit?", running);
        if (!confirm_as_set(*this, model_, setting::confirm_end, ui(tr("Exit")), ui(question),
                            ui(tr("E&xit"))))
            return;
    }
    host_.quit();
}

// Asks what every user is asked once; questions of the engine wait until then.
void MainFrame::first_start() {
    if (asking_ || ending_ || host_.settings().flag(setting::welcomed)) return;
    asking_ = true;
    const std::string fault = ask_first(*this, host_, model_);
    asking_ = false;
    if (ending_) return;
    if (!fault.empty()) say(fault);
    actions_.settle();
    show_view();
    ask_next();
}

}  // namespace vantlow
