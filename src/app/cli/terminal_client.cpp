#include "app/cli/terminal_client.h"

namespace vantlow {
namespace {

constexpr std::chrono::minutes question_patience{10};

}  // namespace

TerminalClient::TerminalClient(Engine& engine, JobOutput& output, StopSource& stop, ThreadPool& threads)
    : engine_(engine), output_(output), stop_(stop), threads_(threads), asking_stop_(stop) {
    engine_.add_listener(*this);
}

TerminalClient::~TerminalClient() {
    engine_.remove_listener(*this);
    asking_stop_.request();
    asker_.join();
}

std::chrono::milliseconds TerminalClient::question_time() const {
    return output_.can_ask() ? question_patience : std::chrono::milliseconds(0);
}

void TerminalClient::report_end(const JobEnd& end, const JobOutcome& outcome) {
    all_.add(outcome.result);
    output_.ended(end.number, *end.job, outcome);
}

void TerminalClient::followed(const Followed& followed) {
    EngineVoice::followed(followed);
    if (!followed.faults.empty()) all_.add(Code::invalid_url);
}

void TerminalClient::logged(const std::vector<LogLine>& lines) {
    for (const LogLine& line : lines) output_.log_line(line.number, line.line);
}

// Asks no question whose answer is a secret, since everybody can read what is typed here.
void TerminalClient::asked(const std::vector<Question>& open) {
    bool begins = false;
    {
        const MutexLock guard(mutex_);
        for (const Question& question : open) {
            const bool is_asked_here =
                question.kind == QuestionKind::host_key || question.kind == QuestionKind::which_files;
            if (question.id <= last_question_ || !is_asked_here) continue;
            last_question_ = question.id;
            to_ask_.push_back(question);
        }
        begins = !to_ask_.empty() && !asking_;
        asking_ = asking_ || begins;
    }
    if (!begins) return;
    asker_.join();
    if (!threads_.start(asker_, [this] { ask_at_terminal(); }).ok()) ask_at_terminal();
}

// Runs on a thread of its own, so that the jobs go on meanwhile.
void TerminalClient::ask_at_terminal() {
    while (true) {
        Question question;
        {
            const MutexLock guard(mutex_);
            asking_ = !to_ask_.empty() && !asking_stop_.requested();
            if (!asking_) return;
            question = std::move(to_ask_.front());
            to_ask_.pop_front();
        }
        auto text = output_.ask(text_of(question) + " ", asking_stop_);
        auto answer = text ? read_answer(question, *text) : std::nullopt;
        // A number that was mistyped is no choice of all files.
        while (text && !answer && question.kind == QuestionKind::which_files) {
            text = output_.ask("Numbers and ranges (1,3-5), all or none: ", asking_stop_);
            answer = text ? read_answer(question, *text) : std::nullopt;
        }
        // It may have lapsed meanwhile.
        static_cast<void>(engine_.answer(question.id, answer.value_or(QuestionAnswer{})));
    }
}

}  // namespace vantlow
