// Everything that can be asked for by menu, context menu, toolbar or key, with its words and its sign.
#pragma once

#include <wx/defs.h>
#include <wx/menu.h>
#include <wx/string.h>

#include <optional>

#include "app/window/pictures.h"

namespace vantlow {

enum Command : int {
    command_add = wxID_HIGHEST + 1,
    command_paste,
    command_start,
    command_stop,
    command_start_all,
    command_stop_all,
    command_first,
    command_earlier,
    command_later,
    command_last,
    command_rename,
    command_open,
    command_open_folder,
    command_copy_address,
    command_move_to,     ///< the menu of the categories
    command_move_files,  ///< into another folder
    command_remove,
    command_remove_files,
    command_undo,
    command_start_over,
    command_check,
    command_properties,
    command_select_all,
    command_find,
    command_category_add,
    command_category_edit,
    command_category_remove,
    command_import,
    command_export,
    command_columns,
    command_pane_views,
    command_pane_tabs,
    command_pane_speed,
    command_pane_tools,
    command_drop_zone,
    command_limit,
    command_questions,
    command_combine,
    command_video_size,
    command_options,
    command_about,
    command_show,
    command_exit,
    command_span_first,
    command_span_last = command_span_first + 3,
    command_category_first,
    command_category_last = command_category_first + 999,
    command_place_first,  ///< of each pane on each side, pane by pane
    command_place_last = command_place_first + 11,
};

/// The words of a command, in the user's language.
struct CommandWords {
    wxString label;  ///< with "&" for its key in menus
    wxString key;    ///< "Ctrl+N"; empty: none
    wxString help;
    std::optional<Picture> sign{};
    bool is_check = false;
    wxString tool{};  ///< the label in the toolbar; empty: that of menus
};
CommandWords words_of(Command command);

/// Appends the command to a menu. Keys that fields of text need for themselves (Delete, Enter, F2, Ctrl+A)
/// are no accelerators, which would take them away everywhere: the list hears them itself, and the help names
/// them.
wxMenuItem* append(wxMenu& menu, Command command);

}  // namespace vantlow
