#include "app/store_command.h"

#include <algorithm>
#include <unordered_set>

#include "app/job_runner.h"
#include "base/text.h"

namespace vantlow {

CommandRun on_store(std::function<Exit(StoreCommand&)> command) {
    return [command = std::move(command)](CFerrywellApp& app, const GlobalOptions& global) {
        std::string error;
        JobStore* const store = app.job_store(error);
        if (store == nullptr) {
            complain(error);
            return Exit::failed;
        }
        StoreCommand context{app, global, *store, app.runner(), {}};
        // A tree without a root has nowhere to put anything; why that is was told when it was loaded.
        if (store->tree().root() == nullptr) {
            complain(store->notes().empty() ? "There is no job database." : store->notes().back());
            return Exit::failed;
        }
        const Exit status = command(context);
        if (!app.save_store(error)) {
            complain(error);
            return Exit::failed;
        }
        if (!context.promise.empty()) write_stream(Stream::output, context.promise);
        return status;
    };
}

std::vector<CJobNode*> find_jobs(StoreCommand& command, const std::vector<std::string>& ids, bool& complete) {
    std::vector<CJobNode*> jobs;
    std::unordered_set<const CJobNode*> seen;
    for (const std::string& id : ids) {
        const auto digits = guid_digits(id);
        const auto found = digits ? command.store.find_by_digits(*digits) : std::vector<CJobNode*>();
        if (found.size() == 1) {
            if (seen.insert(found.front()).second) jobs.push_back(found.front());
            continue;
        }
        complete = false;
        complain(found.empty() ? "There is no job " + id + "." : "More than one job begins with " + id + ".");
    }
    return jobs;
}

CClassNode* find_category(StoreCommand& command, const std::string& name) {
    const auto found = command.store.tree().find_named(to_utf16(name));
    if (found.size() == 1) return found.front();
    complain(found.empty() ? "There is no category \"" + name + "\"."
                           : "More than one category is called \"" + name + "\": say which as PARENT/NAME.");
    return nullptr;
}

}  // namespace vantlow
