// The main window's menus and its toolbar, made of commands.
#pragma once

#include <wx/menu.h>
#include <wx/toolbar.h>

#include <memory>

#include "app/window/commands.h"
#include "app/window/model/speed_history.h"

namespace vantlow {

/// The menu bar, which its frame owns.
wxMenuBar* make_menu_bar();
/// Puts the tools in.
void fill_toolbar(wxToolBar& tools);

/// The context menu of the job list. `targets`: the menu of the categories to move to, which becomes a part
/// of it.
std::unique_ptr<wxMenu> make_jobs_menu(std::unique_ptr<wxMenu> targets);
/// The context menu of the tree. `own_category`: a category stands under it that may be changed.
std::unique_ptr<wxMenu> make_views_menu(bool own_category);
/// The context menu of the histogram, with this span checked.
std::unique_ptr<wxMenu> make_spans_menu(SpeedHistory::Span now);

}  // namespace vantlow
