// The sign beside the clock, where the desktop has such a place: never the only way back to the window.
#pragma once

#include <wx/taskbar.h>

#include <functional>

#include "app/window/commands.h"
#include "app/window/model/status_line.h"

namespace vantlow {

class Tray : public wxTaskBarIcon {
  public:
    /// `give` hears the commands of its menu, and command_show for a click.
    explicit Tray(std::function<void(Command)> give);
    void look(const StatusLine& status);

  private:
    wxMenu* CreatePopupMenu() override;
    std::function<void(Command)> give_;
    wxString told_;
};

}  // namespace vantlow
