#include "app/window/tray.h"

#include <wx/menu.h>

#include "app/window/pictures.h"
#include "app/window/words.h"

namespace vantlow {

Tray::Tray(std::function<void(Command)> give) : give_(std::move(give)) {
    SetIcon(picture(Picture::program, 16), "Vantlow");
    // GTK tells of a click on the sign as of a double one, and of nothing else.
    for (const auto& click : {wxEVT_TASKBAR_LEFT_UP, wxEVT_TASKBAR_LEFT_DCLICK})
        Bind(click, [this](wxTaskBarIconEvent&) { give_(command_show); });
    Bind(wxEVT_MENU, [this](wxCommandEvent& event) { give_(static_cast<Command>(event.GetId())); });
}

// A sign that is set anew flickers on some desktops: only where its words changed.
void Tray::look(const StatusLine& status) {
    wxString text = "Vantlow";
    for (const std::string& part : {status.speed_part(), status.running_part()}) {
        if (!part.empty()) text += "\n" + ui(part);
    }
    if (text == told_) return;
    told_ = text;
    SetIcon(picture(Picture::program, 16), text);
}

wxMenu* Tray::CreatePopupMenu() {
    auto* const menu = new wxMenu;
    for (const Command command : {command_show, command_add, command_paste}) append(*menu, command);
    menu->AppendSeparator();
    append(*menu, command_start_all);
    append(*menu, command_stop_all);
    menu->AppendSeparator();
    append(*menu, command_exit);
    return menu;
}

}  // namespace vantlow
