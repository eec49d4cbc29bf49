#include "app/window/menus.h"

#include <initializer_list>

#include "app/window/drawn.h"
#include "app/window/model/translate.h"
#include "app/window/pictures.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

constexpr auto line = static_cast<Command>(wxID_SEPARATOR);

// The sides on which each pane around the list can stand.
wxMenu* make_places_menu() {
    auto* const menu = new wxMenu;
    int id = command_place_first;
    for (const FramePane& pane : frame_panes) {
        auto* const sides = new wxMenu;
        for (const PaneSide& side : pane_sides) sides->AppendRadioItem(id++, ui(tr(side.title)));
        menu->AppendSubMenu(sides, words_of(pane.command).label);
    }
    return menu;
}

void fill(wxMenu& menu, std::initializer_list<Command> commands) {
    for (const Command command : commands) {
        if (command == line) {
            menu.AppendSeparator();
        } else if (command == command_move_to) {
            menu.Append(command_move_to, ui(tr("&Move to")), new wxMenu);
        } else if (command == command_place_first) {
            menu.AppendSubMenu(make_places_menu(), ui(tr("&Places of the panes")));
        } else {
            append(menu, command);
        }
    }
}

}  // namespace

wxMenuBar* make_menu_bar() {
    auto* const bar = new wxMenuBar;
    const auto add = [bar](const std::string& title, std::initializer_list<Command> commands) {
        auto* const menu = new wxMenu;
        fill(*menu, commands);
        bar->Append(menu, ui(title));
    };
    add(tr("&File"), {command_add, command_paste, line, command_category_add, line, command_import,
                      command_export, line, command_exit});
    add(tr("&Download"), {command_start,
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
                          command_move_to,
                          command_move_files,
                          line,
                          command_start_over,
                          command_check,
                          line,
                          command_remove,
                          command_remove_files,
                          command_undo,
                          line,
                          command_select_all,
                          command_properties});
    add(tr("&View"), {command_find, line, command_pane_tools, command_pane_views, command_pane_tabs,
                      command_pane_speed, command_drop_zone, line, command_columns, command_place_first});
    add(tr("&Tools"),
        {command_limit, command_questions, line, command_combine, command_video_size, line, command_options});
    add(tr("&Help"), {command_about});
    return bar;
}

void fill_toolbar(wxToolBar& tools) {
    for (const Command command :
         {command_add, line, command_start, command_stop, line, command_earlier, command_later, line,
          command_open_folder, command_remove, line, command_options}) {
        if (command == line) {
            tools.AddSeparator();
            continue;
        }
        const CommandWords words = words_of(command);
        wxString label = words.tool.empty() ? words.label : words.tool;
        label.Replace("...", "");
        label = wxStripMenuCodes(label.Trim(), wxStrip_Mnemonics | wxStrip_CJKMnemonics);
        tools.AddTool(command, label, picture(words.sign.value_or(Picture::file), 20), words.help);
    }
    tools.Realize();
}

std::unique_ptr<wxMenu> make_jobs_menu() {
    auto menu = std::make_unique<wxMenu>();
    fill(*menu, {command_open,
                 command_open_folder,
                 command_start,
                 command_stop,
                 line,
                 command_first,
                 command_earlier,
                 command_later,
                 command_last,
                 command_move_to,
                 command_move_files,
                 line,
                 command_copy_address,
                 command_rename,
                 command_start_over,
                 command_check,
                 command_remove,
                 command_remove_files,
                 command_undo,
                 line,
                 command_properties});
    return menu;
}

std::unique_ptr<wxMenu> make_views_menu(bool own_category) {
    auto menu = std::make_unique<wxMenu>();
    fill(*menu, {command_start_all, command_stop_all, line, command_category_add, command_category_edit});
    if (own_category) append(*menu, command_category_remove);
    return menu;
}

std::unique_ptr<wxMenu> make_spans_menu(SpeedHistory::Span now) {
    auto menu = std::make_unique<wxMenu>();
    for (int i = 0; i < 4; ++i) {
        const auto span = static_cast<SpeedHistory::Span>(i);
        menu->AppendRadioItem(command_span_first + i, name_of(span))->Check(span == now);
    }
    return menu;
}

}  // namespace vantlow
