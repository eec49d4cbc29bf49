// `vantlow add`.
#include <nlohmann/json.hpp>

#include <memory>
#include <set>

#include "app/cli/job_options.h"
#include "app/cli/report.h"
#include "app/cli/store/store_command.h"
#include "app/process/job_view.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "engine/schedule_texts.h"

namespace vantlow {
namespace {

struct AddOptions {
    JobOptions job;
    SeedOptions seed;
    std::string category;
    bool paused = false;
    TimesWish times;
};

// Says that the limit for each server holds, which is the program's, so that a single job does not raise it.
void tell_of_server_limit(const StoreCommand& command, const JobOptions& options) {
    const std::int64_t most = command.app.settings().number(setting::max_per_server);
    if (most == 0 || options.connections.value_or(0) <= most || command.global.quiet) return;
    complain("The setting Connection/MaxPerServer allows " + std::to_string(most) +
             " connections to one server, so that a job gets no more.");
}

// Any of the options takes the place of all settings: a ratio that is not given is no bound then.
void keep_seed_options(const SeedOptions& options, JobDraft& draft) {
    if (!options.seed && !options.ratio && options.time.empty()) return;
    JobRules rules = draft.rules ? *draft.rules : JobRules();
    rules.share_ratio = options.seed ? -1 : options.ratio.value_or(-1);
    rules.share_time = options.time.empty() || options.seed ? 0 : parse_span(options.time).value().count();
    draft.rules = std::make_shared<const JobRules>(std::move(rules));
}

// A person may have forgotten that an address was added before.
void tell_of_known(const StoreCommand& command, const std::vector<Guid>& added) {
    if (!command.global.at_terminal || command.global.quiet || command.global.json) return;
    std::set<std::u16string_view> addresses;
    for (const Guid& job : added) addresses.insert(command.engine.find(job)->address);
    const std::set<Guid> fresh(added.begin(), added.end());
    for (const CJobNode* job : command.engine.jobs_below(nullptr)) {
        if (!addresses.contains(job->address) || fresh.contains(job->identity)) continue;
        const JobView view(command.engine, *job);
        tell(view.address() + " is known already: " + guid_text(job->identity) + ", " +
             std::string(view.state_word()));
    }
}

Exit run_add(StoreCommand& command, const AddOptions& options) {
    std::vector<std::string> links;
    if (const Complaint complaint = check_named_files(options.job)) return complain(*complaint, Exit::usage);
    if (const Complaint complaint = read_links(options.job, links)) {
        complain(*complaint);
        return Exit::failed;
    }
    const CClassNode* category = nullptr;
    if (!options.category.empty()) {
        category = find_category(command, options.category);
        if (category == nullptr) return Exit::failed;
    }
    const WallClock& clock = command.engine.clock();
    const auto times = read_times(options.times, clock.now(), clock);
    if (!times) return complain(std::string(times_complaint), Exit::usage);
    tell_of_server_limit(command, options.job);
    JobOptions asked = options.job;
    asked.limits_each = true;
    // As for `get`, files go to the current folder where neither another one nor a category with one is
    // named.
    JobDraft draft = draft_of(asked, category == nullptr ? u"." : category->folder);
    keep_seed_options(options.seed, draft);
    draft.links = std::move(links);
    if (category != nullptr) draft.category = category->identity;
    draft.paused = options.paused;
    draft.schedule.times = *times;
    const Added added = command.engine.add(draft);
    for (const DraftFault& fault : added.faults) complain(text_of(fault));
    nlohmann::ordered_json ids = nlohmann::ordered_json::array();
    std::string lines;
    for (const Guid& job : added.jobs) {
        ids.push_back(guid_text(job));
        lines += guid_text(job) + "\n";
    }
    tell_of_known(command, added.jobs);
    command.promise = answer_text(command.global, ids, lines);
    return added.faults.empty() ? Exit::done : Exit::failed;
}

Complaint check_add(const AddOptions& options) {
    if (Complaint complaint = check_job_options(options.job)) return complaint;
    if (options.job.output == "-") return "--output - is for 'vantlow get' alone.";
    if (Complaint complaint = check_seed_options(options.seed)) return complaint;
    return check_draft(options.job);
}

}  // namespace

void add_add_command(CommandSet& commands) {
    const auto options = std::make_shared<AddOptions>();
    CLI::App& add = commands.add_on_data_folder(
        "add", "Add jobs, and print their ids",
        on_store([options](StoreCommand& command) { return run_add(command, *options); }),
        [options] { return check_add(*options); });
    add_job_options(add, options->job);
    add.add_option("--limit", options->job.limit, "Bytes a second for each of these jobs (500K, 2M)");
    add.add_option("--category", options->category,
                   "The category for the jobs; without --dir their files go to its folder (default: as the "
                   "rules of the categories say)");
    add_seed_options(add, options->seed);
    add.add_option("--at", options->times.start, "When to start: 22:00, or 2026-11-27T22:00");
    add.add_option("--until", options->times.stop, "When to stop");
    add.add_flag("--paused", options->paused, "Let the jobs wait for 'vantlow start'");
}

}  // namespace vantlow
