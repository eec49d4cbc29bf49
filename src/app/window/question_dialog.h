// A question of the engine as a dialog.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/result.h"
#include "engine/questions.h"

class wxWindow;

namespace vantlow {

/// The facts about a job that a question about it is asked with.
struct JobAsking {
    std::u16string user;  ///< of the login that it had
    std::string error;    ///< the reason of its failure, in English; empty: it waits for the answer
};

/// Asks. None where the dialog was closed without an answer: the question stays open for others, and for its
/// default. `gone` is looked at while the dialog is open: true when somebody else has answered meanwhile.
std::optional<QuestionAnswer> ask(wxWindow& parent, const Question& question, const JobAsking& job,
                                  const std::function<bool()>& gone);

}  // namespace vantlow
