// The main window's menus and its toolbar, made of commands.
#pragma once

#include <wx/aui/framemanager.h>
#include <wx/menu.h>
#include <wx/toolbar.h>

#include <memory>
#include <string_view>

#include "app/window/commands.h"
#include "app/window/model/speed_history.h"
#include "app/window/model/translate.h"

namespace vantlow {

/// The panes around the job list, by the commands that show and hide them and by their names in the layout.
struct FramePane {
    Command command;
    const char* name;
};
/// A side of the window on which a pane can stand.
struct PaneSide {
    const char* name;        ///< in the layout
    std::string_view title;  ///< English: through tr()
    wxAuiManagerDock dock;
    [[nodiscard]] bool is_beside() const noexcept {
        return dock == wxAUI_DOCK_LEFT || dock == wxAUI_DOCK_RIGHT;
    }
};
inline constexpr PaneSide pane_sides[] = {{"left", to_translate("&Left"), wxAUI_DOCK_LEFT},
                                          {"right", to_translate("&Right"), wxAUI_DOCK_RIGHT},
                                          {"top", to_translate("&Top"), wxAUI_DOCK_TOP},
                                          {"bottom", to_translate("&Bottom"), wxAUI_DOCK_BOTTOM}};

inline constexpr FramePane views_frame_pane{command_pane_views, "views"};
inline constexpr FramePane tabs_frame_pane{command_pane_tabs, "tabs"};
inline constexpr FramePane speed_frame_pane{command_pane_speed, "speed"};
inline constexpr FramePane frame_panes[] = {views_frame_pane, tabs_frame_pane, speed_frame_pane};

/// The menu bar, which its frame owns.
wxMenuBar* make_menu_bar();
/// Puts the tools in.
void fill_toolbar(wxToolBar& tools);

/// The context menu of the job list. Its menu command_move_to is empty.
std::unique_ptr<wxMenu> make_jobs_menu();
/// The context menu of the tree. `own_category`: a category stands under it that may be changed.
std::unique_ptr<wxMenu> make_views_menu(bool own_category);
/// The context menu of the histogram, with this span checked.
std::unique_ptr<wxMenu> make_spans_menu(SpeedHistory::Span now);

}  // namespace vantlow
