// What the engine's records say to a person: clients of the engine make the sentences.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "app/cli/global_options.h"
#include "engine/engine.h"

namespace vantlow {

std::string text_of(const DraftFault& fault);
/// Nothing where there is no fault.
Complaint text_of(const ProxyFault& fault);
/// The same of an operation; `subject` is what it was about: a job's id, a name.
Complaint text_of(const Done& done, const std::string& subject);
/// A question with what can be said to it: "(yes/no)".
std::string text_of(const Question& question);
/// What a person answers to it; none where that is no answer.
std::optional<QuestionAnswer> read_answer(const Question& question, std::string_view text);

}  // namespace vantlow
