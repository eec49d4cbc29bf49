#include "app/desktop.h"

#include <algorithm>

#include "app/dial_up.h"
#include "app/engine_voice.h"
#include "app/monitor.h"
#include "app/resident.h"
#include "app/store_command.h"
#include "base/text.h"
#include "platform/associations.h"

namespace vantlow {
namespace {

// Whoever is asked may be away for a while; a job that waits for an answer keeps its place so long.
constexpr std::chrono::minutes question_patience{5};

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
    JobDraft draft;
    draft.links = std::move(plain);
    const Added added = command.engine.add(draft);
    for (const DraftFault& fault : added.faults) complain(text_of(fault));
    for (const Guid& job : added.jobs)
        static_cast<void>(command.engine.start(job));  // as soon as they are safe
    return added.faults.empty() ? Exit::done : Exit::failed;
}

void start_all(Engine& engine) {
    for (const CJobNode* job : engine.jobs_below(nullptr)) {
        if (job->state != JobState::finished) static_cast<void>(engine.start(job->identity));
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
    if (app.runs_jobs()) {
        if (links.empty()) return Exit::done;
        return on_store([&](StoreCommand& command) { return add_and_start(command, links); })(app, global);
    }
    std::string error;
    Engine* const engine = app.engine(error);
    if (engine == nullptr) return complain(error);
    EngineVoice voice;
    Resident resident(app, *engine);
    if (!resident.open(Frame::Role::main, question_patience, false, error)) return complain(error);
    engine->add_listener(voice);
    CJobLog dial_log;
    if (const Result dialled = dial_as_set(app, dial_log); !dialled.ok()) complain(dialled.message());
    associate_as_set(app);
    register_link_formats();
    if (app.settings().flag(setting::start_all)) start_all(*engine);
    if (!links.empty()) static_cast<void>(run_desktop(app, global, links));  // complained about; it stays
    const Exit status = resident.run();
    engine->remove_listener(voice);
    return status;
}

void add_quit_command(CommandSet& commands) {
    commands.add_at(Place::quit, "quit", "End the running instance, everything saved",
                    [](CFerrywellApp&, const GlobalOptions&) {
                        complain("No instance is running.");
                        return Exit::failed;
                    });
}

}  // namespace vantlow
