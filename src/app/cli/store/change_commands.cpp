// `vantlow change`, `limit`, `check` and `undo`.
#include <memory>

#include "app/cli/job_options.h"
#include "app/cli/store/store_command.h"
#include "app/process/ending.h"
#include "app/terminal/quantities.h"
#include "base/text.h"

namespace vantlow {
namespace {

using Texts = std::vector<std::string>;

struct ChangeOptions {
    JobChoice jobs;
    std::optional<std::string> address, referer, comment, user, password, agent, cookie, proxy, name;
    std::optional<int> connections;
    Texts mirrors;
};

JobEdit edit_of(const ChangeOptions& options) {
    const auto wide = [](const std::optional<std::string>& text) {
        return text ? std::optional(to_utf16(*text)) : std::nullopt;
    };
    JobEdit edit;
    edit.address = wide(options.address);
    edit.referer = wide(options.referer);
    edit.comment = wide(options.comment);
    edit.user = wide(options.user);
    edit.password = wide(options.password);
    edit.agent = wide(options.agent);
    edit.cookie = wide(options.cookie);
    if (edit.cookie && edit.cookie->starts_with(u'@'))
        edit.cookie = u"@" + absolute_path(edit.cookie->substr(1));
    edit.proxy = wide(options.proxy);
    edit.connections = options.connections;
    if (options.mirrors.empty()) return edit;
    edit.mirrors.emplace();
    for (const std::string& mirror : options.mirrors) {
        if (mirror != "none") edit.mirrors->push_back(to_utf16(mirror));
    }
    return edit;
}

// Does the same with each of the chosen jobs.
template <class Act>
Exit for_each_job(StoreCommand& command, const JobChoice& choice, const Act& act) {
    bool complete = true;
    for (const Guid& job : chosen_jobs(command, choice, complete)) {
        if (exit_of(act(job), guid_text(job)) != Exit::done) complete = false;
    }
    return complete ? Exit::done : Exit::failed;
}

Complaint check_change(const ChangeOptions& options) {
    if (options.address && options.jobs.ids.size() > 1) return "--address is the address of one job.";
    if (options.name && options.jobs.ids.size() > 1) return "--output is the name of one job's file.";
    if (options.proxy) {
        if (Complaint complaint = check_proxy(*options.proxy)) return complaint;
    }
    return check_job_choice(options.jobs, false);
}

void add_change(CommandSet& commands) {
    const auto options = std::make_shared<ChangeOptions>();
    CLI::App& change = commands.add_on_data_folder(
        "change", "Change what jobs are like; a new address lets one go on whose link has run out",
        on_store([options](StoreCommand& command) {
            const JobEdit edit = edit_of(*options);
            return for_each_job(command, options->jobs, [&](const Guid& job) {
                const Done named =
                    options->name ? command.engine.rename(job, to_utf16(*options->name)) : Done();
                return named.ok() ? command.engine.change(job, edit) : named;
            });
        }),
        [options] { return check_change(*options); });
    add_job_choice(change, options->jobs, false);
    change.add_option("--address", options->address, "Another address of the same file");
    change.add_option("--output", options->name, "Another name for the file, or for the torrent's folder")
        ->type_name("NAME");
    change.add_option("--mirror", options->mirrors,
                      "A further address of the same file, instead of those that were named before; none: no "
                      "further ones");
    change.add_option("--connections", options->connections, "Connections for each job")
        ->check(CLI::Range(1, most_connections));
    change.add_option("--user", options->user, "The user name for the server");
    change.add_option("--password", options->password, "The password for the server");
    change.add_option("--referer", options->referer, "The address to send as Referer");
    change.add_option("--agent", options->agent, "The name of the program to send as User-Agent");
    change.add_option("--cookie", options->cookie, "Cookies to send: \"name=value; name=value\", or @FILE");
    change.add_option("--proxy", options->proxy, "The proxy; empty: the settings'");
    change.add_option("--comment", options->comment, "A remark");
}

// ---- limit

struct LimitOptions {
    JobChoice jobs;
    std::string down;
    std::string up;
};

// "off" is 0.
std::optional<std::int64_t> rate_of(const std::string& text) {
    return text == "off" ? 0 : parse_rate(text);
}

Complaint check_limit(const LimitOptions& options) {
    if (options.down.empty() && options.up.empty()) return "--down or --up says what the limit is.";
    for (const auto& [option, text] : {std::pair("--down", &options.down), std::pair("--up", &options.up)}) {
        if (!text->empty() && !rate_of(*text))
            return std::string(option) + " takes bytes a second (500K, 2M) or off, not \"" + *text + "\".";
    }
    return std::nullopt;
}

Exit limit_program(StoreCommand& command, const std::optional<std::int64_t>& down,
                   const std::optional<std::int64_t>& up) {
    const auto limit_of = [](std::int64_t rate) { return rate > 0 ? std::optional(rate) : std::nullopt; };
    Exit exit = down ? exit_of(command.engine.set_limit(limit_of(*down)), "The limit") : Exit::done;
    if (up && exit == Exit::done) exit = exit_of(command.engine.set_upload_limit(limit_of(*up)), "The limit");
    return exit;
}

Exit run_limit(StoreCommand& command, const LimitOptions& options) {
    JobEdit edit;
    edit.speed_limit = rate_of(options.down);
    edit.upload_limit = rate_of(options.up);
    if (options.jobs.ids.empty()) return limit_program(command, edit.speed_limit, edit.upload_limit);
    return for_each_job(command, options.jobs,
                        [&](const Guid& job) { return command.engine.change(job, edit); });
}

void add_limit(CommandSet& commands) {
    const auto options = std::make_shared<LimitOptions>();
    CLI::App& limit = commands.add_on_data_folder(
        "limit", "Limit the speed from now on: of jobs, or of all together where none is named",
        on_store([options](StoreCommand& command) { return run_limit(command, *options); }),
        [options] { return check_limit(*options); });
    limit.add_option("--down", options->down, "Bytes a second that are received (500K, 2M), or off");
    limit.add_option("--up", options->up, "Bytes a second that the peers of torrents get, or off");
    add_job_choice(limit, options->jobs, false);
}

}  // namespace

void add_change_commands(CommandSet& commands) {
    add_change(commands);
    add_limit(commands);
    const auto checked = std::make_shared<JobChoice>();
    CLI::App& check = commands.add_on_data_folder(
        "check", "Check the files of jobs again against the hashes that are known, when their turn comes",
        on_store([checked](StoreCommand& command) {
            return for_each_job(command, *checked,
                                [&](const Guid& job) { return command.engine.check(job); });
        }),
        [checked] { return check_job_choice(*checked, false); });
    add_job_choice(check, *checked, false);
    commands.add_on_data_folder(
        "undo", "Bring the jobs back that were removed last, while the program that removed them runs",
        on_store(
            [](StoreCommand& command) { return exit_of(command.engine.undo_removal(), "The removal"); }));
}

}  // namespace vantlow
