#include "app/cli/store/store_command.h"

#include <unordered_set>

#include "base/text.h"

namespace vantlow {

CommandRun on_store(std::function<Exit(StoreCommand&)> command) {
    return [command = std::move(command)](CFerrywellApp& app, const GlobalOptions& global) {
        std::string error;
        Engine* const engine = app.engine(error);
        if (engine == nullptr) return complain(error);
        StoreCommand context{app, global, *engine, {}};
        const Exit status = command(context);
        // Whoever runs the jobs makes safe what a command changed, and answers for it then.
        if (!engine->runs() && !engine->save(error)) return complain(error);
        if (!context.promise.empty()) write_stream(Stream::output, context.promise);
        return status;
    };
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

}  // namespace vantlow
