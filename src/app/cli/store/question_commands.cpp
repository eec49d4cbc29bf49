// `vantlow questions` and `vantlow answer`.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/store_command.h"
#include "app/terminal/display_text.h"
#include "base/text.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

ordered_json json_of(const Question& question) {
    const auto left = std::chrono::ceil<std::chrono::seconds>(question.until - QuestionBoard::Clock::now());
    const bool of_a_job = !question.job.is_zero();
    return {{"id", question.id},
            {"kind", kind_name(question.kind)},
            {"job", of_a_job ? ordered_json(guid_text(question.job)) : ordered_json(nullptr)},
            {"text", text_of(question)},
            {"seconds", std::max<std::int64_t>(left.count(), 0)}};
}

Exit run_questions(StoreCommand& command) {
    std::string text;
    ordered_json all = ordered_json::array();
    for (const Question& question : command.engine.questions()) {
        all.push_back(json_of(question));
        text += std::to_string(question.id) + "  ";
        const std::string asked = text_of(question);
        for (const std::string_view line : split(asked, '\n')) text += printable(line) + "\n";
    }
    print_answer(command.global, all, text);
    return Exit::done;
}

struct AnswerOptions {
    std::uint64_t id = 0;
    std::string value;
};

Exit run_answer(StoreCommand& command, const AnswerOptions& options) {
    for (const Question& question : command.engine.questions()) {
        if (question.id != options.id) continue;
        const auto answer = read_answer(question, options.value);
        if (!answer) return complain("\"" + options.value + "\" is no answer to: " + text_of(question));
        return exit_of(command.engine.answer(options.id, *answer), std::to_string(options.id));
    }
    return complain("There is no question " + std::to_string(options.id) + ".");
}

}  // namespace

void add_question_commands(CommandSet& commands) {
    commands.add_on_data_folder("questions",
                                "List the questions that the resident program waits to have answered",
                                on_store(run_questions));
    const auto options = std::make_shared<AnswerOptions>();
    CLI::App& answer = commands.add_on_data_folder(
        "answer", "Answer one of these questions",
        on_store([options](StoreCommand& command) { return run_answer(command, *options); }));
    answer.add_option("ID", options->id, "The question's number")->required();
    answer
        .add_option("VALUE", options->value,
                    "yes, no, rename, USER:PASSWORD, or numbers (1,3-5), as the question says")
        ->required();
}

}  // namespace vantlow
