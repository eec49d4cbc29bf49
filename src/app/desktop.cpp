#include "app/desktop.h"

#include <algorithm>

#include "app/dial_up.h"
#include "app/job_runner.h"
#include "app/monitor.h"
#include "app/resident.h"
#include "app/store_command.h"
#include "app/store_jobs.h"
#include "base/text.h"
#include "platform/associations.h"

namespace vantlow {
namespace {

// Desktops name files as links too (RFC 8089): "file:///a%20b".
std::string plain_path(const std::string& link) {
    constexpr std::string_view scheme = "file://";
    if (!istarts_with(link, scheme)) return link;
    std::string path = percent_decode(std::string_view(link).substr(scheme.size()));
    const bool drive = path_separator() == u'\\' && path.size() > 2 && path[0] == '/' && path[2] == ':';
    return drive ? path.substr(1) : path;
}

// Files the links' jobs in the first category, and starts them.
Exit add_and_start(StoreCommand& command, const std::vector<std::string>& links) {
    std::vector<std::string> plain(links.size());
    std::transform(links.begin(), links.end(), plain.begin(), plain_path);
    const AddedJobs added = add_jobs(command, {}, plain, *command.store.tree().root(), false);
    for (CJobNode* job : added.jobs) command.runner->start(*job);  // as soon as they are safe
    return added.complete ? Exit::done : Exit::failed;
}

void start_all(JobStore& store, JobRunner& runner) {
    for (CJobNode* job : store.jobs_below(nullptr)) {
        if (job->state != JobState::finished) runner.start(*job);
    }
}

}  // namespace

Complaint check_desktop_links(const std::vector<std::string>& links) {
    for (const std::string& link : links) {
        const bool like_a_link = link.find_first_of("./\\:") != std::string::npos;
        if (like_a_link || path_kind(absolute_path(to_utf16(link))) != PathKind::none) continue;
        return "\"" + link + "\" is neither a command nor a link nor a file.";
    }
    return std::nullopt;
}

Exit run_desktop(CFerrywellApp& app, const GlobalOptions& global, const std::vector<std::string>& links) {
    if (app.runner() != nullptr) {
        if (links.empty()) return Exit::done;
        return on_store([&](StoreCommand& command) { return add_and_start(command, links); })(app, global);
    }
    std::string error;
    JobStore* const store = app.job_store(error);
    Resident resident(app);
    if (store == nullptr || !resident.open(*store, Frame::Role::main, {}, error)) {
        complain(error);
        return Exit::failed;
    }
    CJobLog dial_log;
    if (const Result dialled = dial_as_set(app, dial_log); !dialled.ok()) complain(dialled.message());
    associate_as_set(app);
    register_link_formats();
    if (app.settings().flag(setting::start_all)) start_all(*store, resident.runner());
    if (!links.empty()) static_cast<void>(run_desktop(app, global, links));  // complained about; it stays
    return resident.run();
}

void add_quit_command(CommandSet& commands) {
    commands.add_at(Place::quit, "quit", "End the running instance, everything saved",
                    [](CFerrywellApp&, const GlobalOptions&) {
                        complain("No instance is running.");
                        return Exit::failed;
                    });
}

}  // namespace vantlow
