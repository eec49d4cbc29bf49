// Small questions of the window itself, and the parts that its dialogs share.
#pragma once

#include <wx/string.h>

#include <functional>

#include "app/window/model/window_model.h"
#include "store/setting_table.h"

class wxSearchCtrl;
class wxSizer;
class wxTextCtrl;
class wxTopLevelWindow;
class wxWindow;

namespace vantlow {

/// Gives a dialog the program's sign, and the buttons that every one has (OK, Cancel, Close) their words in
/// the user's language.
void finish_dialog(wxTopLevelWindow& dialog);

/// Makes a field to search with, named `name` for screen readers, that tells of every change of its text. The
/// sign that empties it is there while there is something to be emptied.
wxSearchCtrl* make_search(wxWindow& parent, const wxString& name, const wxString& hint,
                          std::function<void()> changed);

/// Adds a field of text with its label to a grid of two columns, named for screen readers by it.
wxTextCtrl* add_text(wxWindow& parent, wxSizer& grid, const wxString& label, const wxString& value,
                     long style = 0);

/// Adds a field for a folder, with a button that chooses one; `hint`: the folder where it is left empty.
wxTextCtrl* add_folder(wxWindow& parent, wxSizer& grid, const wxString& label, const std::u16string& folder,
                       const std::u16string& hint);

/// The folder in which the system's dialogs for files begin: that of downloads, not where the program runs.
wxString downloads_folder(const WindowModel& model);

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
