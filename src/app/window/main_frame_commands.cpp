// The commands of the main window: whether one can be given now, and its way from a menu or a key to who
// carries it out.
#include <wx/accel.h>
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/toolbar.h>

#include "app/window/job_lists.h"
#include "app/window/main_frame.h"
#include "app/window/menus.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/size_dialog.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

bool is_text_focused() {
    return dynamic_cast<wxTextEntry*>(wxWindow::FindFocus()) != nullptr;
}

}  // namespace

bool MainFrame::can(Command command, const JobActions::Selected& selected) const {
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
        case command_move_to:
        case command_move_files:
        case command_remove:
        case command_remove_files:
        case command_undo:
        case command_start_over:
        case command_check:
        case command_properties:
        case command_select_all:
            return actions_.can(command, selected);
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
    const JobActions::Selected selected = actions_.selected();
    for (int id = command_start; id <= command_select_all; ++id) {
        const bool possible = can(static_cast<Command>(id), selected);
        if (bar->FindItem(id) != nullptr) bar->Enable(id, possible);
        if (tools->FindById(id) != nullptr && tools->GetToolEnabled(id) != possible)
            tools->EnableTool(id, possible);
    }
    bar->Enable(command_questions, can(command_questions, selected));
    int place = command_place_first;
    for (const FramePane& one : frame_panes) {
        bar->Check(one.command, is_pane_shown(one));
        for (const PaneSide& side : pane_sides) {
            if (&side == &side_of(one)) bar->Check(place, true);
            ++place;
        }
    }
    bar->Check(command_pane_tools, tools->IsShown());
    bar->Check(command_drop_zone, zone_ != nullptr && zone_->IsShown());
    bar->Check(command_limit, model_.status.limit().has_value());
}

void MainFrame::give(Command command) {
    if (!can(command, actions_.selected())) return;
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
        case command_category_edit:
            if (view.what == View::What::category) actions_.edit_category(view.category);
            return;
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
        case command_import:
            tell_about(import_jobs(*this, model_, model_.tree.category_for(view)));
            return actions_.settle();
        case command_export:
            return tell_about(export_jobs(*this, model_));
        case command_combine:
            return join_films();
        case command_video_size:
            return tell_about(CFixVideoSizeDlg::ask(*this, model_.engine.first_category()->folder));
        case command_options:
            return show_options();
        case command_about:
            return show_about();
        case command_show:
            return come_to_front();
        case command_exit:
            return quit();
        default:
            for (const FramePane& one : frame_panes) {
                if (one.command == command) show_pane(one, !is_pane_shown(one));
            }
    }
}

// A dialog that opens before the key is done with gets the key, too: Ctrl+V would paste once more into it.
void MainFrame::give_later(Command command) {
    CallAfter([this, command] { give(command); });
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
        give_later(static_cast<Command>(id));
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
        return give_later(event.ShiftDown() ? command_remove_files : command_remove);
    if (in_list && key == WXK_F2) return give_later(command_rename);
    if (in_list && key == 'A' && event.GetModifiers() == wxMOD_CONTROL) return give_later(command_select_all);
    if (in_list && key == 'C' && event.GetModifiers() == wxMOD_CONTROL)
        return give_later(command_copy_address);
    if (!is_text_focused() && key == 'V' && event.GetModifiers() == wxMOD_CONTROL)
        return give_later(command_paste);
    if (tabs_->IsDescendant(wxWindow::FindFocus()) && !is_text_focused() && key == 'C' &&
        event.GetModifiers() == wxMOD_CONTROL && tabs_->copy())
        return;
    if (key == WXK_ESCAPE && search_->IsDescendant(wxWindow::FindFocus())) {
        search_->Clear();
        return jobs_->table().control().SetFocus();
    }
    event.Skip();
}

void MainFrame::fill_move_targets(wxMenu& menu) {
    while (menu.GetMenuItemCount() > 0) menu.Destroy(menu.FindItemByPosition(0));
    move_targets_.clear();
    for (const CClassNode* const category : model_.engine.categories()) {
        const int id = command_category_first + static_cast<int>(move_targets_.size());
        if (id > command_category_last) break;
        move_targets_.push_back(category->identity);
        menu.Append(id, as_label(name_of(*category)));
    }
}

void MainFrame::pop_up_jobs(const wxPoint& at) {
    const auto menu = make_jobs_menu();
    fill_move_targets(*menu->FindItem(command_move_to)->GetSubMenu());
    const JobActions::Selected selected = actions_.selected();
    for (int id = command_start; id <= command_properties; ++id) {
        if (menu->FindItem(id) != nullptr) menu->Enable(id, can(static_cast<Command>(id), selected));
    }
    PopupMenu(menu.get(), place_of_menu(*this, at));
}

void MainFrame::pop_up_views(const wxPoint& at) {
    const std::size_t node = model_.tree.find(views_->view());
    const bool is_own = node != ViewNode::none && model_.tree.nodes()[node].can_rename;
    const auto menu = make_views_menu(is_own);
    menu->Enable(command_category_edit, views_->view().what == View::What::category);
    PopupMenu(menu.get(), place_of_menu(*this, at));
}

void MainFrame::pop_up_spans() {
    PopupMenu(make_spans_menu(speed_->span()).get());
}

}  // namespace vantlow
