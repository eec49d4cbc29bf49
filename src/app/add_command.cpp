// `vantlow add`.
#include <nlohmann/json.hpp>

#include <memory>

#include "app/get_command.h"
#include "app/job_runner.h"
#include "app/json_text.h"
#include "app/store_commands.h"
#include "app/store_jobs.h"
#include "base/text.h"

namespace vantlow {
namespace {

struct AddOptions {
    GetOptions job;
    std::string category;
    bool paused = false;
};

Exit run_add(StoreCommand& command, const AddOptions& options) {
    std::vector<std::string> links;
    if (const Complaint complaint = read_links(options.job, links)) {
        complain(*complaint);
        return Exit::failed;
    }
    CClassNode* category = command.store.tree().root();
    if (!options.category.empty()) category = find_category(command, options.category);
    if (category == nullptr) return Exit::failed;
    // As for `get` it is the current folder, where neither another one nor a category with one is named.
    GetOptions asked = options.job;
    if (asked.folder.empty() && options.category.empty()) asked.folder = ".";
    const AddedJobs added = add_jobs(command, asked, links, *category, options.paused);
    nlohmann::ordered_json ids = nlohmann::ordered_json::array();
    for (const CJobNode* job : added.jobs) {
        const std::string id = guid_text(job->identity);
        ids.push_back(id);
        if (!command.global.json) command.promise += id + "\n";
    }
    if (command.global.json) command.promise = json_line(ids) + "\n";
    return added.complete ? Exit::done : Exit::failed;
}

Complaint check_add(const AddOptions& options) {
    if (Complaint complaint = check_job_options(options.job)) return complaint;
    RunOptions run;
    return read_run_options(options.job, run);
}

}  // namespace

void add_add_command(CommandSet& commands) {
    const auto options = std::make_shared<AddOptions>();
    CLI::App& add = commands.add_on_data_folder(
        "add", "File jobs; prints their ids",
        on_store([options](StoreCommand& command) { return run_add(command, *options); }),
        [options] { return check_add(*options); });
    add_job_options(add, options->job);
    add.add_option("--category", options->category,
                   "The category to file them in; without --dir they are saved in its folder");
    add.add_flag("--paused", options->paused, "They wait for 'vantlow start'");
}

}  // namespace vantlow
