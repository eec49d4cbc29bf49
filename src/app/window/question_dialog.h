// A question of the engine, or of the window itself, as a dialog.
#pragma once

#include <wx/string.h>

#include <functional>
#include <optional>

#include "engine/questions.h"

class wxWindow;

namespace vantlow {

/// Asks. None where the dialog was closed without an answer: the question stays open for others, and for its
/// default. `gone` is looked at while it is open: true when somebody else has answered meanwhile.
std::optional<QuestionAnswer> ask(wxWindow& parent, const Question& question,
                                  const std::function<bool()>& gone);

/// Asks whether something is to be done, which `action` names on its button. Unlike the system's message
/// boxes it ends with the window when the program is told to quit.
bool confirm(wxWindow& parent, const wxString& title, const wxString& question, const wxString& action);

/// Gives the buttons that every dialog has (OK, Cancel, Close) their words in the user's language.
void name_buttons(wxWindow& dialog);

}  // namespace vantlow
