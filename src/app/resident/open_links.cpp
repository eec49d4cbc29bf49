#include "app/resident/open_links.h"

#include <algorithm>

#include "app/cli/store/store_command.h"
#include "app/resident/serve.h"
#include "base/text.h"
#include "platform/process.h"

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
    JobDraft draft;
    draft.links = std::move(plain);
    const Added added = command.engine.add(draft);
    for (const DraftFault& fault : added.faults) complain(text_of(fault));
    for (const Guid& job : added.jobs)
        static_cast<void>(command.engine.start(job));  // as soon as they are safe
    return added.faults.empty() ? Exit::done : Exit::failed;
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

Exit run_desktop(CFerrywellApp& app, const GlobalOptions& global, const std::vector<std::string>& links,
                 const std::vector<std::string>& words) {
    const auto take_links = [&] {
        return on_store([&](StoreCommand& command) { return add_and_start(command, links); })(app, global);
    };
    if (app.runs_jobs()) {
        if (!links.empty()) return take_links();
        tell_that_it_runs(app, global);
        return Exit::done;
    }
    const bool at_terminal = is_terminal(Stream::output) || is_terminal(Stream::error);
    if (at_terminal && !can_outlive_terminal() && !global.in_background)
        return start_in_background(app, global, words);
    return stay_resident(app, global, [&] {
        if (!links.empty()) static_cast<void>(take_links());  // complained about; it stays
    });
}

void add_quit_command(CommandSet& commands) {
    commands.add_at(Place::quit, "quit", "End the resident program, after saving everything",
                    [](CFerrywellApp&, const GlobalOptions&) {
                        complain("Vantlow is not running.");
                        return Exit::failed;
                    });
}

}  // namespace vantlow
