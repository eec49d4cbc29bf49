#include "app/window/main_frame.h"

#include <wx/accel.h>
#include <wx/app.h>
#include <wx/dialog.h>
#include <wx/display.h>
#include <wx/menu.h>
#include <wx/msgdlg.h>
#include <wx/sizer.h>
#include <wx/statusbr.h>
#include <wx/textctrl.h>
#include <wx/toolbar.h>
#include <wx/utils.h>

#include <algorithm>

#include "app/window/model/layout_memory.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/new_job_dialog.h"
#include "app/window/options_dialog.h"
#include "app/window/pictures.h"
#include "app/window/question_dialog.h"
#include "app/window/words.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// Four times a second, as often as the engine tells what changed.
constexpr int round_ms = 250;
constexpr int rounds_a_second = 1000 / round_ms;

const wxString views_name = "views";
const wxString tabs_name = "tabs";
const wxString speed_name = "speed";

enum StatusField {
    message_field,
    speed_field,
    running_field,
    waiting_field,
    space_field,
    limit_field,
    status_fields
};

struct PaneCommand {
    Command command;
    const wxString& name;
};
const PaneCommand pane_commands[] = {
    {command_pane_views, views_name}, {command_pane_tabs, tabs_name}, {command_pane_speed, speed_name}};

bool is_text_focused() {
    return dynamic_cast<wxTextEntry*>(wxWindow::FindFocus()) != nullptr;
}

std::string key_of(SpeedHistory::Span span) {
    return std::to_string(static_cast<int>(span));
}

}  // namespace

MainFrame::MainFrame(DesktopHost& host, WindowModel& model)
    : wxFrame(nullptr, wxID_ANY, "Vantlow"),
      host_(host),
      model_(model),
      actions_(*this, model, [this](const std::string& text) { say(text); }) {
    SetName("vantlow");
    SetSize(FromDIP(wxSize(1020, 680)));
    SetIcons(wxIconBundle(picture(Picture::program, 32).GetIcon(FromDIP(wxSize(32, 32)))));
    build_panes();
    build_menus();
    build_toolbar();
    build_status();
    bind();
    is_built_ = true;
    take_layout();
    if (wxTaskBarIcon::IsAvailable())
        tray_ = std::make_unique<Tray>(
            [this](Command command) { CallAfter([this, command] { give(command); }); });
    model_.on_trouble = [this](const std::string& text) { CallAfter([this, text] { say(text); }); };
    model_.questions.on_front([this] { CallAfter([this] { ask_next(); }); });
    show_selection();
    show_status();
}

MainFrame::~MainFrame() {
    timer_.Stop();
    model_.on_trouble = {};
    model_.questions.on_front({});
    clipboard_.reset();
    panes_.UnInit();
    // The panes read from the model and from each other, not the toolkit's base class, which outlives them.
    DestroyChildren();
    if (tray_) tray_->RemoveIcon();
}

void MainFrame::build_panes() {
    ViewPane::Events of_views;
    of_views.selected = [this] { show_view(); };
    of_views.menu = [this] { pop_up_views(); };
    auto* const middle = new wxPanel(this);
    bar_ = new wxInfoBar(middle);
    search_ = new wxSearchCtrl(middle, wxID_ANY);
    search_->SetDescriptiveText(ui(tr("Search names, addresses and comments")));
    search_->SetName(ui(tr("Search downloads")));
    search_->ShowCancelButton(true);
    JobPane::Events of_jobs;
    of_jobs.selected = [this] { show_selection(); };
    of_jobs.opened = [this] { give(actions_.can(command_open) ? command_open : command_properties); };
    of_jobs.menu = [this] { pop_up_jobs(); };
    of_jobs.dragged = [this] { drag_jobs(); };
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
    const auto pane = [](const wxString& name, const wxString& title) {
        return wxAuiPaneInfo().Name(name).Caption(title).CaptionVisible(false).PaneBorder(true).Floatable(
            false);
    };
    panes_.AddPane(middle, wxAuiPaneInfo().Name("jobs").CentrePane());
    panes_.AddPane(
        views_, pane(views_name, ui(tr("Categories"))).Left().Layer(1).BestSize(FromDIP(wxSize(220, 300))));
    panes_.AddPane(
        tabs_, pane(tabs_name, ui(tr("Details"))).Bottom().Position(0).BestSize(FromDIP(wxSize(620, 210))));
    panes_.AddPane(
        speed_, pane(speed_name, ui(tr("Speed"))).Bottom().Position(1).BestSize(FromDIP(wxSize(280, 210))));
    panes_.GetPane(tabs_name).dock_proportion = 7;  // beside each other they share the room like that
    panes_.GetPane(speed_name).dock_proportion = 3;
    panes_.Update();
}

void MainFrame::build_menus() {
    constexpr auto line = static_cast<Command>(wxID_SEPARATOR);
    const auto fill_menu = [](std::initializer_list<Command> commands) {
        auto* const menu = new wxMenu;
        for (const Command command : commands) {
            if (command == line) {
                menu->AppendSeparator();
            } else {
                append(*menu, command);
            }
        }
        return menu;
    };
    auto* const bar = new wxMenuBar;
    bar->Append(fill_menu({command_add, command_paste, line, command_category_add, line, command_exit}),
                ui(tr("&File")));
    bar->Append(fill_menu({command_start,
                           command_stop,
                           command_start_all,
                           command_stop_all,
                           line,
                           command_first,
                           command_earlier,
                           command_later,
                           command_last,
                           line,
                           command_open,
                           command_open_folder,
                           command_copy_address,
                           command_rename,
                           line,
                           command_start_over,
                           command_check,
                           line,
                           command_remove,
                           command_remove_files,
                           command_undo,
                           line,
                           command_select_all,
                           command_properties}),
                ui(tr("&Download")));
    bar->Append(fill_menu({command_find, line, command_pane_tools, command_pane_views, command_pane_tabs,
                           command_pane_speed, command_drop_zone, line, command_columns}),
                ui(tr("&View")));
    bar->Append(fill_menu({command_limit, command_questions, line, command_options}), ui(tr("&Tools")));
    bar->Append(fill_menu({command_about}), ui(tr("&Help")));
    SetMenuBar(bar);
}

void MainFrame::build_toolbar() {
    wxToolBar* const tools = CreateToolBar(wxTB_FLAT | wxTB_HORIZONTAL | wxTB_HORZ_TEXT);
    const auto add = [&](Command command) {
        const CommandWords words = words_of(command);
        wxString label = wxStripMenuCodes(words.label, wxStrip_Mnemonics | wxStrip_CJKMnemonics);
        label.Replace("...", "");
        tools->AddTool(command, label, picture(words.sign.value_or(Picture::file), 20), words.help);
    };
    add(command_add);
    tools->AddSeparator();
    for (const Command command : {command_start, command_stop}) add(command);
    tools->AddSeparator();
    for (const Command command : {command_earlier, command_later}) add(command);
    tools->AddSeparator();
    for (const Command command : {command_open_folder, command_remove}) add(command);
    tools->AddSeparator();
    add(command_options);
    tools->Realize();
}

void MainFrame::build_status() {
    CreateStatusBar(status_fields);
    const int widths[status_fields] = {-4, -2, -2, -2, -2, -3};
    SetStatusWidths(status_fields, widths);
}

void MainFrame::bind() {
    Bind(wxEVT_MENU, [this](wxCommandEvent& event) {
        const int id = event.GetId();
        if (id >= command_category_first && id <= command_category_last)
            return move_to(id - command_category_first);
        if (id >= command_span_first && id <= command_span_last)
            return speed_->show(static_cast<SpeedHistory::Span>(id - command_span_first));
        give(static_cast<Command>(id));
    });
    Bind(wxEVT_MENU_OPEN, [this](wxMenuEvent& event) {
        event.Skip();
        enable_commands();
    });
    Bind(wxEVT_CHAR_HOOK, [this](wxKeyEvent& event) { on_key(event); });
    Bind(wxEVT_CLOSE_WINDOW, [this](wxCloseEvent& event) { on_close(event); });
    search_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { jobs_->show(views_->view(), search_->GetValue()); });
    speed_->Bind(wxEVT_CONTEXT_MENU, [this](wxContextMenuEvent&) { pop_up_spans(); });
    GetStatusBar()->Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent& event) {
        wxRect room;
        if (GetStatusBar()->GetFieldRect(limit_field, room) && room.Contains(event.GetPosition()))
            give(command_limit);
    });
    timer_.Bind(wxEVT_TIMER, [this](wxTimerEvent&) { round(); });
    const TakeDropped take = [this](const Dropped& dropped, const wxPoint& at) { take_dropped(dropped, at); };
    for (wxWindow* const window : {&jobs_->table().control(), &views_->tree().control()})
        window->SetDropTarget(make_drop_target(*window, take));
    SetDropTarget(make_drop_target(*this, take));
    zone_ = new DropZone(this, model_.live, take, [this] { come_to_front(); });
    clipboard_ =
        std::make_unique<ClipboardWatch>(*this, [this] { CallAfter([this] { clipboard_changed(); }); });
}

void MainFrame::take_layout() {
    const vantlow::Layout layout = load_layout(host_.settings());
    std::vector<vantlow::Layout::Place> screens;
    for (unsigned i = 0; i < wxDisplay::GetCount(); ++i) {
        const wxRect room = wxDisplay(i).GetClientArea();
        screens.push_back({room.x, room.y, room.width, room.height});
    }
    if (const auto place = layout.place_on(screens)) {
        SetSize(FromDIP(wxSize(place->width, place->height)));
        Move(place->x, place->y);
    } else {
        CentreOnScreen();
    }
    if (layout.maximised) Maximize();
    jobs_->take(layout);
    for (const PaneCommand& one : pane_commands) {
        const auto known = layout.panes.find(utf8_of(one.name));
        if (known == layout.panes.end()) continue;
        wxAuiPaneInfo& pane = panes_.GetPane(one.name);
        pane.Show(known->second.shown);
        if (known->second.size > 0) {
            const int size = FromDIP(known->second.size);
            pane.BestSize(one.command == command_pane_views ? wxSize(size, -1)
                                                            : wxSize(pane.best_size.x, size));
        }
    }
    panes_.Update();
    const auto tools = layout.panes.find("tools");
    if (tools != layout.panes.end() && !tools->second.shown) GetToolBar()->Hide();
    const auto zone = layout.panes.find("zone");
    if (zone != layout.panes.end() && zone->second.shown) zone_->Show();
    if (const auto at = layout.choices.find("zone-place"); at != layout.choices.end()) {
        const wxString place = ui(at->second);
        long x = 0;
        long y = 0;
        if (place.BeforeFirst('x').ToLong(&x) && place.AfterFirst('x').ToLong(&y))
            zone_->Move(static_cast<int>(x), static_cast<int>(y));
    }
    if (const auto span = layout.choices.find("span"); span != layout.choices.end()) {
        for (int i = 0; i < 4; ++i) {
            if (key_of(static_cast<SpeedHistory::Span>(i)) == span->second)
                speed_->show(static_cast<SpeedHistory::Span>(i));
        }
    }
}

void MainFrame::give_layout() {
    vantlow::Layout layout = load_layout(host_.settings());
    layout.maximised = IsMaximized();
    if (!layout.maximised && !IsIconized()) {
        const wxSize size = ToDIP(GetSize());
        layout.window = vantlow::Layout::Place{GetPosition().x, GetPosition().y, size.x, size.y};
    }
    jobs_->give(layout);
    for (const PaneCommand& one : pane_commands) {
        const wxAuiPaneInfo& pane = panes_.GetPane(one.name);
        const int edge =
            one.command == command_pane_views ? pane.window->GetSize().x : pane.window->GetSize().y;
        vantlow::Layout::Pane& kept = layout.panes[utf8_of(one.name)];
        kept.shown = pane.IsShown();
        if (pane.IsShown()) kept.size = ToDIP(edge);
    }
    layout.panes["tools"].shown = GetToolBar()->IsShown();
    layout.panes["zone"].shown = zone_->IsShown();
    layout.choices["zone-place"] =
        std::to_string(zone_->GetPosition().x) + "x" + std::to_string(zone_->GetPosition().y);
    layout.choices["span"] = key_of(speed_->span());
    const Done done = save_layout(model_.engine, host_.settings(), layout);
    if (!done.ok()) say(sentence_of(done));
}

void MainFrame::begin() {
    views_->select(View::of_category(model_.engine.first_category()->identity));
    show_view();
    Show();
    jobs_->table().control().SetFocus();
    timer_.Start(round_ms);
    CallAfter([this] { ask_next(); });
}

void MainFrame::come_to_front() {
    Show();
    if (IsIconized()) Restore();
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
    tray_.reset();
    // Dialogs that are open have loops of their own: they end first.
    for (wxWindow* const window : wxTopLevelWindows) {
        auto* const dialog = dynamic_cast<wxDialog*>(window);
        if (dialog != nullptr && dialog->IsModal()) dialog->EndModal(wxID_CANCEL);
    }
    wxTheApp->ExitMainLoop();
}

void MainFrame::on_close(wxCloseEvent& event) {
    const bool stays = event.CanVeto() && tray_ && host_.settings().flag(setting::close_to_tray);
    if (event.CanVeto()) event.Veto();
    if (stays) {
        Hide();
    } else {
        host_.quit();
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
    if (speed_->IsShownOnScreen()) speed_->Refresh();
    zone_->look();
    if (tray_) tray_->look(model_.status);
}

void MainFrame::show_status() {
    const auto put = [this](const std::string& text, int field) {
        const wxString wanted = ui(text);
        if (GetStatusBar()->GetStatusText(field) != wanted) SetStatusText(wanted, field);
    };
    const std::size_t selected = model_.rows.selected().size();
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

bool MainFrame::can(Command command) const {
    switch (command) {
        case command_start:
        case command_stop:
        case command_start_all:
        case command_stop_all:
        case command_first:
        case command_earlier:
        case command_later:
        case command_last:
        case command_rename:
        case command_open:
        case command_open_folder:
        case command_copy_address:
        case command_remove:
        case command_remove_files:
        case command_undo:
        case command_start_over:
        case command_check:
        case command_properties:
        case command_select_all:
            return actions_.can(command);
        case command_questions:
            return model_.questions.size() > 0;
        default:
            return true;
    }
}

void MainFrame::enable_commands() {
    wxMenuBar* const bar = GetMenuBar();
    wxToolBar* const tools = GetToolBar();
    if (bar == nullptr || tools == nullptr) return;
    for (int id = command_start; id <= command_select_all; ++id) {
        const bool possible = can(static_cast<Command>(id));
        if (bar->FindItem(id) != nullptr) bar->Enable(id, possible);
        if (tools->FindById(id) != nullptr && tools->GetToolEnabled(id) != possible)
            tools->EnableTool(id, possible);
    }
    bar->Enable(command_questions, can(command_questions));
    for (const PaneCommand& one : pane_commands) bar->Check(one.command, is_pane_shown(one.name));
    bar->Check(command_pane_tools, tools->IsShown());
    bar->Check(command_drop_zone, zone_ != nullptr && zone_->IsShown());
    bar->Check(command_limit, model_.status.limit().has_value());
}

void MainFrame::give(Command command) {
    if (!can(command)) return;
    if (command != command_select_all && actions_.give(command)) {
        host_.turn();
        return enable_commands();
    }
    give_other(command);
}

void MainFrame::give_other(Command command) {
    const View view = views_->view();
    switch (command) {
        case command_add:
            return new_jobs({});
        case command_paste:
            return paste();
        case command_select_all:
            return jobs_->select_all();
        case command_find:
            return search_->SetFocus();
        case command_category_add:
            return actions_.add_category(model_.tree.category_for(view));
        case command_category_rename:
            return actions_.rename_category(view.category);
        case command_category_remove:
            return actions_.remove_category(view.category);
        case command_columns:
            return jobs_->choose_columns();
        case command_pane_tools:
            GetToolBar()->Show(!GetToolBar()->IsShown());
            return SendSizeEvent();
        case command_drop_zone:
            zone_->Show(!zone_->IsShown());
            return zone_->look();
        case command_limit: {
            const Done done = model_.status.switch_limit(!model_.status.limit().has_value());
            if (!done.ok()) say(sentence_of(done));
            return show_status();
        }
        case command_questions:
            model_.questions.bring_back();
            return;
        case command_options:
            return show_options();
        case command_about:
            return show_about();
        case command_show:
            return come_to_front();
        case command_exit:
            host_.quit();
            return;
        default:
            for (const PaneCommand& one : pane_commands) {
                if (one.command == command) show_pane(one.name, !is_pane_shown(one.name));
            }
    }
}

// GTK's trees have keys of their own (Ctrl+N goes a line down), which would come before those of the menus.
bool MainFrame::give_by_key(const wxKeyEvent& event) {
    if (is_text_focused()) return false;
    for (int id = command_add; id <= command_exit; ++id) {
        const wxString key = words_of(static_cast<Command>(id)).key;
        if (key.empty()) continue;
        const std::unique_ptr<wxAcceleratorEntry> entry(wxAcceleratorEntry::Create("\t" + key));
        if (!entry || entry->GetKeyCode() != event.GetKeyCode() || entry->GetFlags() != event.GetModifiers())
            continue;
        give(static_cast<Command>(id));
        return true;
    }
    return false;
}

// The keys of the menus, and those that fields of text need for themselves: only the list's own.
void MainFrame::on_key(wxKeyEvent& event) {
    const int key = event.GetKeyCode();
    if (event.GetModifiers() != wxMOD_NONE && give_by_key(event)) return;
    const bool in_list = jobs_->IsDescendant(wxWindow::FindFocus()) && !is_text_focused();
    if (in_list && key == WXK_DELETE && !event.ControlDown())
        return give(event.ShiftDown() ? command_remove_files : command_remove);
    if (in_list && key == WXK_F2) return give(command_rename);
    if (in_list && key == 'A' && event.GetModifiers() == wxMOD_CONTROL) return give(command_select_all);
    if (in_list && key == 'C' && event.GetModifiers() == wxMOD_CONTROL) return give(command_copy_address);
    if (!is_text_focused() && key == 'V' && event.GetModifiers() == wxMOD_CONTROL) return paste();
    if (tabs_->IsDescendant(wxWindow::FindFocus()) && !is_text_focused() && key == 'C' &&
        event.GetModifiers() == wxMOD_CONTROL && tabs_->copy())
        return;
    if (key == WXK_ESCAPE && search_->IsDescendant(wxWindow::FindFocus())) {
        search_->Clear();
        return jobs_->table().control().SetFocus();
    }
    event.Skip();
}

void MainFrame::show_pane(const wxString& name, bool shown_now) {
    panes_.GetPane(name).Show(shown_now);
    panes_.Update();
}

bool MainFrame::is_pane_shown(const wxString& name) {
    return panes_.GetPane(name).IsShown();
}

void MainFrame::pop_up_jobs() {
    wxMenu menu;
    for (const Command command : {command_open, command_open_folder, command_start, command_stop})
        append(menu, command);
    menu.AppendSeparator();
    for (const Command command : {command_first, command_earlier, command_later, command_last})
        append(menu, command);
    auto* const targets = new wxMenu;
    move_targets_.clear();
    for (const CClassNode* const category : model_.engine.categories()) {
        const int id = command_category_first + static_cast<int>(move_targets_.size());
        if (id > command_category_last) break;
        move_targets_.push_back(category->identity);
        targets->Append(id, as_label(shown(category->name)));
    }
    menu.AppendSubMenu(targets, ui(tr("&Move to")))->Enable(!model_.rows.selected().empty());
    menu.AppendSeparator();
    for (const Command command : {command_copy_address, command_rename, command_start_over, command_check,
                                  command_remove, command_remove_files, command_undo})
        append(menu, command);
    menu.AppendSeparator();
    append(menu, command_properties);
    for (int id = command_start; id <= command_properties; ++id) {
        if (menu.FindItem(id) != nullptr) menu.Enable(id, can(static_cast<Command>(id)));
    }
    PopupMenu(&menu);
}

void MainFrame::pop_up_views() {
    wxMenu menu;
    append(menu, command_start_all);
    append(menu, command_stop_all);
    menu.AppendSeparator();
    append(menu, command_category_add);
    const std::size_t node = model_.tree.find(views_->view());
    if (node != ViewNode::none && model_.tree.nodes()[node].can_rename) {
        append(menu, command_category_rename);
        append(menu, command_category_remove);
    }
    PopupMenu(&menu);
}

void MainFrame::pop_up_spans() {
    wxMenu menu;
    for (int i = 0; i < 4; ++i) {
        const auto span = static_cast<SpeedHistory::Span>(i);
        menu.AppendRadioItem(command_span_first + i, name_of(span))->Check(span == speed_->span());
    }
    PopupMenu(&menu);
}

void MainFrame::move_to(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= move_targets_.size()) return;
    actions_.move(model_.rows.selected(), move_targets_[static_cast<std::size_t>(index)]);
    host_.turn();
}

// Dragged addresses are text for other programs; onto a category of ours they move the jobs.
void MainFrame::drag_jobs() {
    wxString text;
    const auto jobs = model_.rows.selected();
    for (const Guid& id : jobs) {
        const CJobNode* const job = model_.engine.find(id);
        if (job != nullptr) text += ui(to_utf8(job->address)) + "\n";
    }
    if (text.empty()) return;
    wxTextDataObject data(text);
    wxDropSource source(data, this);
    dragged_ = jobs;
    source.DoDragDrop(wxDrag_CopyOnly);
    // The drop itself arrives behind this, when the loop runs again.
    CallAfter([this] { CallAfter([this] { dragged_.clear(); }); });
}

void MainFrame::new_jobs(const std::string& text) {
    std::string links = text;
    if (links.empty()) {
        for (const std::string& link : read_clipboard().links) links += link + "\n";
    }
    NewJobDialog dialog(*this, model_,
                        model_.new_jobs.form_of(links, model_.tree.category_for(views_->view())));
    if (dialog.ShowModal() != wxID_OK || ending_) return;
    const auto added = actions_.add(dialog.draft());
    host_.turn();
    if (!added.empty()) jobs_->select(added);
}

void MainFrame::take_dropped(const Dropped& dropped, const wxPoint& on_screen) {
    const View* const category = views_->IsShownOnScreen() ? views_->category_at(on_screen) : nullptr;
    if (!dragged_.empty()) {
        if (category != nullptr) actions_.move(dragged_, category->category);
        return;
    }
    if (!dropped.files.empty()) {
        JobDraft draft;
        draft.links = dropped.files;
        draft.category = category != nullptr ? category->category : model_.tree.category_for(views_->view());
        draft.asks_which = true;
        actions_.add(draft);
    }
    if (dropped.links.empty()) return;
    std::string text;
    for (const std::string& link : dropped.links) text += link + "\n";
    if (category != nullptr) views_->select(*category);
    new_jobs(text);
}

void MainFrame::paste() {
    const Dropped dropped = read_clipboard();
    if (dropped.empty()) return say(tr("There are no links in the clipboard."));
    take_dropped(dropped, wxDefaultPosition);
}

// Once for each text, and never for what was copied here.
void MainFrame::clipboard_changed() {
    if (!host_.settings().flag(setting::watch_clipboard) || IsActive()) return;
    const Dropped dropped = read_clipboard();
    if (dropped.links.empty() || dropped.links == last_links_ || asking_) return;
    last_links_ = dropped.links;
    if (copied_text().Contains(ui(dropped.links.front()))) return;
    come_to_front();
    take_dropped(dropped, wxDefaultPosition);
}

// One dialog at a time; the next question comes when it is closed.
void MainFrame::ask_next() {
    if (asking_ || ending_ || !model_.questions.front()) return;
    const Question question = *model_.questions.front();
    asking_ = true;
    const auto answer = ask(*this, question, [this, id = question.id] {
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
    OptionsDialog(*this, model_.settings, [](const std::string&) {}).ShowModal();
}

void MainFrame::show_about() {
    const wxString text =
        "Vantlow " + ui(to_utf8(product_version())) + "\n" + ui(platform_name()) + "\n\n" +
        ui(tr("Made with wxWidgets, under the wxWindows Library Licence. The texts of all licences are in "
              "the folder of the program's documents."));
    wxMessageDialog(this, text, ui(tr("About Vantlow")), wxOK | wxICON_INFORMATION).ShowModal();
}

// Sentences stand in the window until they are closed; the last ones stay.
void MainFrame::say(const std::string& text) {
    constexpr std::size_t most_said = 3;
    if (!bar_->IsShown()) said_.clear();
    if (std::find(said_.begin(), said_.end(), text) != said_.end()) return;
    said_.push_back(text);
    if (said_.size() > most_said) said_.erase(said_.begin());
    wxString all;
    for (const std::string& one : said_) all += (all.empty() ? "" : "\n") + as_label(shown(to_utf16(one)));
    bar_->ShowMessage(all, wxICON_WARNING);
}

}  // namespace vantlow
