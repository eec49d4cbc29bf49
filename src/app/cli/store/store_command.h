// The commands on the job store and the data folder: what they share, and the words that each file adds.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/cli/command_set.h"
#include "app/cli/engine_texts.h"
#include "app/process/application.h"
#include "app/process/ending.h"
#include "engine/engine.h"
#include "platform/console.h"

namespace vantlow {

void add_add_command(CommandSet& commands);           ///< add
void add_list_commands(CommandSet& commands);         ///< list, show, log
void add_steer_commands(CommandSet& commands);        ///< stop, remove (`start` is the resident program's)
void add_change_commands(CommandSet& commands);       ///< change, limit, check, undo
void add_torrent_job_commands(CommandSet& commands);  ///< torrent peers, trackers, files, pieces, check
void add_scrape_command(CommandSet& commands);        ///< torrent scrape
void add_category_commands(CommandSet& commands);     ///< category ..., move
void add_schedule_command(CommandSet& commands);      ///< schedule ...
void add_list_file_commands(CommandSet& commands);    ///< export, import
void add_question_commands(CommandSet& commands);     ///< questions, answer
void add_settings_commands(CommandSet& commands);     ///< settings ...
void add_proxy_commands(CommandSet& commands);        ///< proxy ...

/// The surroundings of a command on the store.
struct StoreCommand {
    CFerrywellApp& app;
    const GlobalOptions& global;
    Engine& engine;
    std::string promise;  ///< output that is written once the changes are safe, and only then
};

/// Makes a command that gets the engine of the data folder: the store is loaded where this process has not
/// loaded it yet, and saved behind the command where something changed. Failures to load or save are reported
/// and end the command with Exit::failed, without its promise. Where this process runs the jobs, the process
/// that answers for the command saves, and keeps all output back until then.
CommandRun on_store(std::function<Exit(StoreCommand&)> command);

/// The same for a command that changes nothing and runs in its own process, whoever owns the data folder.
/// Nothing is saved; its promise is not used.
CommandRun on_store_as_it_is(std::function<Exit(StoreCommand&)> command);

/// Finds the jobs that these texts name (GUIDs or unique prefixes of them), in their order, each once. A text
/// that names none is complained about and makes `complete` false.
std::vector<Guid> find_jobs(StoreCommand& command, const std::vector<std::string>& ids, bool& complete);

/// Finds the category of this name or path; null, with a complaint, when there is none or more than one.
const CClassNode* find_category(StoreCommand& command, const std::string& name);

/// Complains where the operation failed; `subject` is the job's id or the name that it was about.
Exit exit_of(const Done& done, const std::string& subject);

/// The jobs that a command is for: some by their ids, or all.
struct JobChoice {
    std::vector<std::string> ids;
    bool all = false;
};

/// Adds the ids, and --all where the command `has_all`. `choice` outlives the word.
void add_job_choice(CLI::App& word, JobChoice& choice, bool has_all);

/// Complains where no job, or both jobs and --all, are named.
Complaint check_job_choice(const JobChoice& choice, bool has_all);

/// Finds the chosen jobs, as find_jobs() does.
std::vector<Guid> chosen_jobs(StoreCommand& command, const JobChoice& choice, bool& complete);

}  // namespace vantlow
