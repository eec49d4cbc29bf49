#include "app/cli/store/store_command.h"

#include <unordered_set>

#include "base/text.h"

namespace vantlow {

CommandRun on_store_as_it_is(std::function<Exit(StoreCommand&)> command) {
    return [command = std::move(command)](CFerrywellApp& app, const GlobalOptions& global) {
        std::string error;
        Engine* const engine = app.engine(error);
        if (engine == nullptr) return complain(error);
        StoreCommand context{app, global, *engine, {}};
        return command(context);
    };
}

CommandRun on_store(std::function<Exit(StoreCommand&)> command) {
    return on_store_as_it_is([command = std::move(command)](StoreCommand& context) {
        const Exit status = command(context);
        // The process that runs the jobs makes the changes of a command safe, and answers for it then.
        std::string error;
        if (!context.engine.runs() && !context.engine.save(error)) return complain(error);
        if (!context.promise.empty()) write_stream(Stream::output, context.promise);
        return status;
    });
}

std::vector<Guid> find_jobs(StoreCommand& command, const std::vector<std::string>& ids, bool& complete) {
    std::vector<Guid> jobs;
    std::unordered_set<Guid, GuidHash> seen;
    for (const std::string& id : ids) {
        const auto digits = guid_digits(id);
        const auto found = digits ? command.engine.find_by_digits(*digits) : std::vector<const CJobNode*>();
        if (found.size() == 1) {
            const Guid& job = found.front()->identity;
            if (seen.insert(job).second) jobs.push_back(job);
            continue;
        }
        complete = false;
        complain(found.empty() ? "There is no job " + id + "." : "More than one job begins with " + id + ".");
    }
    return jobs;
}

const CClassNode* find_category(StoreCommand& command, const std::string& name) {
    const auto found = command.engine.find_category(to_utf16(name));
    if (found.size() == 1) return found.front();
    complain(found.empty() ? "There is no category \"" + name + "\"."
                           : "More than one category is called \"" + name + "\": write it as PARENT/NAME.");
    return nullptr;
}

Exit exit_of(const Done& done, const std::string& subject) {
    const Complaint complaint = text_of(done, subject);
    return complaint ? complain(*complaint) : Exit::done;
}

void add_job_choice(CLI::App& word, JobChoice& choice, bool has_all) {
    word.add_option("ID", choice.ids, "The jobs' ids, or the beginnings of them");
    if (has_all) word.add_flag("--all", choice.all, "All jobs");
}

Complaint check_job_choice(const JobChoice& choice, bool has_all) {
    if (choice.ids.empty() && !has_all) return "name at least one job.";
    if (choice.ids.empty() && !choice.all) return "name at least one job, or use --all.";
    if (!choice.ids.empty() && choice.all) return "name jobs or use --all, not both.";
    return std::nullopt;
}

std::vector<Guid> chosen_jobs(StoreCommand& command, const JobChoice& choice, bool& complete) {
    if (!choice.all) return find_jobs(command, choice.ids, complete);
    std::vector<Guid> jobs;
    for (const CJobNode* job : command.engine.jobs_below(nullptr)) jobs.push_back(job->identity);
    return jobs;
}

}  // namespace vantlow
