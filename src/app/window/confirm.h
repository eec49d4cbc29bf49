// Small questions of the window itself, and the parts that its dialogs share.
#pragma once

#include <wx/string.h>

#include <functional>

#include "app/window/model/window_model.h"
#include "store/setting_table.h"

class wxSizer;
class wxTextCtrl;
class wxWindow;

namespace vantlow {

/// Gives the buttons that every dialog has (OK, Cancel, Close) their words in the user's language.
void name_buttons(wxWindow& dialog);

/// Adds a field of text with its label to a grid of two columns, named for screen readers by it.
wxTextCtrl* add_text(wxWindow& parent, wxSizer& grid, const wxString& label, const wxString& value,
                     long style = 0);

/// Adds a field for a folder, with a button that chooses one; `hint`: the folder where it is left empty.
wxTextCtrl* add_folder(wxWindow& parent, wxSizer& grid, const wxString& label, const std::u16string& folder,
                       const std::u16string& hint);

/// Makes check boxes for the days of a week; `changed` hears the bits of those that are checked.
wxWindow* make_weekday_boxes(wxWindow& parent, std::int32_t days, std::function<void(std::int32_t)> changed);

/// Tells something that waits for nobody's answer, until it is closed.
void tell(wxWindow& parent, const wxString& title, const wxString& text);

/// Asks whether something is to be done, which `action` names on its button. Unlike the system's message
/// boxes it ends with the window when the program is told to quit.
bool confirm(wxWindow& parent, const wxString& title, const wxString& question, const wxString& action);

/// The same, unless this setting (a switch) says that it is not to be asked; with a box that switches it off.
bool confirm_as_set(wxWindow& parent, WindowModel& model, const NumberSetting& wish, const wxString& title,
                    const wxString& question, const wxString& action);

}  // namespace vantlow
