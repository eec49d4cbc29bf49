// A question of the engine as a dialog.
#pragma once

#include <functional>
#include <optional>

#include "engine/questions.h"

class wxWindow;

namespace vantlow {

/// Asks. None where the dialog was closed without an answer: the question stays open for others, and for its
/// default. `gone` is looked at while it is open: true when somebody else has answered meanwhile.
std::optional<QuestionAnswer> ask(wxWindow& parent, const Question& question,
                                  const std::function<bool()>& gone);

}  // namespace vantlow
