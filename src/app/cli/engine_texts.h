// The engine's records as sentences for a person: the engine itself has no texts, its clients make them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "app/cli/command.h"
#include "app/process/ending.h"
#include "engine/engine.h"

namespace vantlow {

std::string text_of(const DraftFault& fault);
/// Nothing where there is no fault.
Complaint text_of(const ProxyFault& fault);
/// Nothing where the operation was done; `subject` is the job's id or the name that it was about.
Complaint text_of(const Done& done, const std::string& subject);
/// The sentence for times of which read_times() makes none.
inline constexpr std::string_view times_complaint =
    "These are no times that could be kept: --at and --until take 22:00 or 2026-11-27T22:00, both in the "
    "future and the end behind the start; with --days times of day alone; --every at least 1m.";
/// The kind of a question as programs are told it: "host-key".
std::string_view kind_name(QuestionKind kind) noexcept;
/// The question with the answers that it takes: "(yes/no)".
std::string text_of(const Question& question);
/// Reads a person's answer to the question; none where the text is no answer.
std::optional<QuestionAnswer> read_answer(const Question& question, std::string_view text);

/// Reports on stderr what an engine has to say where no terminal shows its jobs.
class EngineVoice : public EngineListener {
  public:
    void followed(const Followed& followed) override {
        for (const DraftFault& fault : followed.faults) say_wrong(text_of(fault));
    }
    void store_said(const std::string& text) override { say_wrong(text); }

  protected:
    virtual void say_wrong(const std::string& text) { complain(text); }
};

}  // namespace vantlow
