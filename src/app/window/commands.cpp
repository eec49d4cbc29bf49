#include "app/window/commands.h"

#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

CommandWords of_jobs(Command command) {
    switch (command) {
        case command_add:
            return {ui(tr("&New download...")),
                    "Ctrl+N",
                    ui(tr("Add addresses to download")),
                    Picture::add,
                    false,
                    ui(tr("New"))};
        case command_paste:
            return {ui(tr("&Paste links")), "Ctrl+Shift+V", ui(tr("Download the links in the clipboard"))};
        case command_start:
            return {ui(tr("&Start")), "Ctrl+R", ui(tr("Start the selected downloads")), Picture::start};
        case command_stop:
            return {ui(tr("S&top")), "Ctrl+T", ui(tr("Stop the selected downloads")), Picture::stop};
        case command_start_all:
            return {ui(tr("Start &all")), "Ctrl+Shift+R", ui(tr("Start all downloads of this view"))};
        case command_stop_all:
            return {ui(tr("Stop a&ll")), "Ctrl+Shift+T", ui(tr("Stop all downloads of this view"))};
        case command_first:
            return {ui(tr("To t&he top")), "Ctrl+Shift+Up", ui(tr("Next in the order of waiting downloads")),
                    Picture::top};
        case command_earlier:
            return {ui(tr("&Up")), "Ctrl+Up", ui(tr("Earlier in the order of waiting downloads")),
                    Picture::up};
        case command_later:
            return {ui(tr("Do&wn")), "Ctrl+Down", ui(tr("Later in the order of waiting downloads")),
                    Picture::down};
        case command_last:
            return {ui(tr("To the &bottom")), "Ctrl+Shift+Down",
                    ui(tr("Last in the order of waiting downloads"))};
        case command_rename:
            return {ui(tr("Re&name...")), "", ui(tr("Rename the file (F2)"))};
        case command_move_files:
            return {ui(tr("Chan&ge folder...")), "", ui(tr("Move the files of the selected downloads"))};
        case command_open:
            return {ui(tr("&Open")), "Ctrl+O", ui(tr("Open the downloaded file (Enter)")), Picture::file};
        case command_open_folder:
            return {ui(tr("Open &folder")), "Ctrl+Shift+O", ui(tr("Open the folder of the file")),
                    Picture::folder,        false,          ui(tr("Folder"))};
        case command_copy_address:
            return {ui(tr("&Copy address")), "Ctrl+Shift+C",
                    ui(tr("Copy the addresses of the selected downloads"))};
        case command_remove:
            return {ui(tr("&Remove...")), "", ui(tr("Remove the downloads from the list (Delete)")),
                    Picture::remove};
        case command_remove_files:
            return {ui(tr("Remove with f&iles...")), "",
                    ui(tr("Remove the downloads and their files (Shift+Delete)"))};
        case command_start_over:
            return {ui(tr("Start o&ver...")), "", ui(tr("Forget what was downloaded and begin anew"))};
        case command_check:
            return {ui(tr("Chec&k again")), "", ui(tr("Check the file against its known hashes"))};
        case command_undo:
            return {ui(tr("Un&do the removal")), "Ctrl+Z", ui(tr("Bring back what was removed last"))};
        case command_properties:
            return {ui(tr("&Properties...")), "Alt+Return",
                    ui(tr("Address, login and connections of the downloads"))};
        default:
            return {};
    }
}

CommandWords of_window(Command command) {
    switch (command) {
        case command_select_all:
            return {ui(tr("S&elect all")), "", ui(tr("Select all downloads of this view (Ctrl+A)"))};
        case command_find:
            return {ui(tr("&Find")), "Ctrl+F", ui(tr("Show only downloads that hold a text"))};
        case command_category_add:
            return {ui(tr("New &category...")), "", ui(tr("Add a category below this one"))};
        case command_category_edit:
            return {ui(tr("&Edit category...")), "",
                    ui(tr("Change the name and the folder of this category"))};
        case command_category_remove:
            return {ui(tr("Remove ca&tegory...")), "",
                    ui(tr("Remove this category; its downloads go to the one above"))};
        case command_import:
            return {ui(tr("&Import...")), "",
                    ui(tr("Add the downloads of a job list or of a list of links"))};
        case command_export:
            return {ui(tr("&Export...")), "", ui(tr("Write downloads to a job list"))};
        case command_columns:
            return {ui(tr("C&olumns...")), "", ui(tr("Choose the columns of the list"))};
        case command_pane_views:
            return {ui(tr("&Categories")), "", ui(tr("Show the tree of categories")), {}, true};
        case command_pane_tabs:
            return {ui(tr("&Details")), "", ui(tr("Show segments, log and details")), {}, true};
        case command_pane_speed:
            return {ui(tr("&Speed")), "", ui(tr("Show the speed as a curve")), {}, true};
        case command_pane_tools:
            return {ui(tr("&Toolbar")), "", ui(tr("Show the toolbar")), {}, true};
        case command_drop_zone:
            return {ui(tr("D&rop zone")), "", ui(tr("Show a small window that takes links")), {}, true};
        case command_limit:
            return {ui(tr("&Limit speed")),
                    "Ctrl+L",
                    ui(tr("Switch the speed limit for all downloads")),
                    {},
                    true};
        case command_questions:
            return {ui(tr("Open &questions")), "", ui(tr("Ask again what was put off"))};
        case command_combine:
            return {ui(tr("&Join films...")), "", ui(tr("Make one file of the pieces of a film"))};
        case command_video_size:
            return {ui(tr("&Picture size...")), "", ui(tr("Correct the picture size that a film states"))};
        case command_options:
            return {ui(tr("&Options...")), "Ctrl+Alt+O", ui(tr("Change settings")), Picture::options};
        case command_about:
            return {ui(tr("&About Vantlow...")), "", ui(tr("Version and licences"))};
        case command_show:
            return {ui(tr("&Show Vantlow")), "", ui(tr("Show the window"))};
        case command_exit:
            return {ui(tr("E&xit")), "Ctrl+Q", ui(tr("Stop all downloads and end Vantlow"))};
        default:
            return {};
    }
}

}  // namespace

CommandWords words_of(Command command) {
    const CommandWords words = of_jobs(command);
    return words.label.empty() ? of_window(command) : words;
}

wxMenuItem* append(wxMenu& menu, Command command) {
    const CommandWords words = words_of(command);
    const wxString text = words.key.empty() ? words.label : words.label + "\t" + words.key;
    auto* const item =
        new wxMenuItem(&menu, command, text, words.help, words.is_check ? wxITEM_CHECK : wxITEM_NORMAL);
    if (words.sign) put_sign(*item, picture(*words.sign));
    return menu.Append(item);
}

}  // namespace vantlow
