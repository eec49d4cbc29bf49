// A question of the engine as a dialog.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "engine/questions.h"

class wxWindow;

namespace vantlow {

/// Asks. None where the dialog was closed without an answer: the question stays open for others, and for its
/// default. `user` is the name that was refused; it may be empty. `gone` is looked at while the dialog is
/// open: true when somebody else has answered meanwhile.
std::optional<QuestionAnswer> ask(wxWindow& parent, const Question& question, const std::u16string& user,
                                  const std::function<bool()>& gone);

}  // namespace vantlow
