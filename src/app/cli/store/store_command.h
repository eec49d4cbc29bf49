// What the commands on the job store share.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/cli/command_set.h"
#include "app/cli/engine_texts.h"
#include "app/process/messages.h"
#include "engine/engine.h"
#include "platform/console.h"

namespace vantlow {

/// What such a command works with.
struct StoreCommand {
    CFerrywellApp& app;
    const GlobalOptions& global;
    Engine& engine;
    std::string promise;  ///< output that is written once the changes are safe, and only then
};

/// A command that gets the engine of the data folder: the store is loaded where this process has not loaded
/// it yet, and saved behind the command where something changed. Failures to load or save are told and end
/// with Exit::failed, and without what the command promises. Where this process runs the jobs, whoever
/// answers for the command saves, and keeps all output back until then.
CommandRun on_store(std::function<Exit(StoreCommand&)> command);

/// The jobs that these texts name (GUIDs or unique prefixes of them), in their order, each once. What names
/// none is complained about and makes `complete` false.
std::vector<Guid> find_jobs(StoreCommand& command, const std::vector<std::string>& ids, bool& complete);
/// The category of this name or path; null, with a complaint, when there is none or more than one.
const CClassNode* find_category(StoreCommand& command, const std::string& name);
/// Complains where the operation failed; `subject` is what it was about.
Exit exit_of(const Done& done, const std::string& subject);

}  // namespace vantlow
