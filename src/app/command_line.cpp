#include "app/command_line.h"

#include <utility>

#include "app/combine_command.h"
#include "app/desktop.h"
#include "app/get_command.h"
#include "app/link_commands.h"
#include "app/media_command.h"
#include "app/store_commands.h"
#include "app/torrent_commands.h"
#include "app/version_command.h"
#include "base/text.h"

namespace vantlow {
namespace {

void add_commands(CommandSet& commands) {
    add_get_command(commands);
    add_link_commands(commands);
    add_add_command(commands);
    add_list_commands(commands);
    add_steer_commands(commands);
    add_question_commands(commands);
    add_category_commands(commands);
    add_list_file_commands(commands);
    add_settings_commands(commands);
    add_torrent_commands(commands);
    add_combine_command(commands);
    add_media_command(commands);
    add_proxy_commands(commands);
    add_quit_command(commands);
}

void add_global_options(CLI::App& app, GlobalOptions& global, std::string& data_folder,
                        std::string& settings_file) {
    app.add_option("--data-dir", data_folder, "The data folder")->envname("VANTLOW_DATA_DIR");
    app.add_option("--settings", settings_file, "A settings file in place of the user's settings")
        ->envname("VANTLOW_SETTINGS");
    app.add_option("--set", global.set, "Section/Key=Value: one setting for this run; repeatable")
        ->allow_extra_args(false);
    app.add_flag("--json", global.json, "Machine output");
    app.add_flag("-q,--quiet", global.quiet, "Errors only");
    app.add_flag("-v,--verbose", global.verbose, "The job log, line by line, to stderr");
}

Command complain(const std::string& text, const std::string& words = "vantlow") {
    Command command;
    command.text = "vantlow: " + text + "\nTry '" + words + " --help'.\n";
    command.status = Exit::usage;
    return command;
}

Command desktop_command(Command command, std::vector<std::string> links) {
    if (const Complaint complaint = check_desktop_links(links)) return complain(*complaint);
    command.place = Place::desktop;
    command.run = [links = std::move(links)](CFerrywellApp& app, const GlobalOptions& global) {
        return run_desktop(app, global, links);
    };
    return command;
}

// The words that were said, the program's own name in front.
std::string said_words(const CLI::App& app) {
    std::string words = app.get_name();
    for (const CLI::App* word : app.get_subcommands()) words += " " + said_words(*word);
    return words;
}

// The help of the innermost word that was said, its usage line with all words in front of it, and the options
// that every word takes.
std::string help_of(const CLI::App& app) {
    const CLI::App* word = &app;
    std::string before;
    while (!word->get_subcommands().empty()) {
        before += (before.empty() ? "" : " ") + word->get_name();
        word = word->get_subcommands().front();
    }
    if (word == &app) return app.help();
    const auto global = app.get_options([&app](const CLI::Option* option) {
        const bool is_own = option == app.get_help_ptr() || option->check_name("--version");
        return option->nonpositional() && !is_own;
    });
    return word->help(before) + CLI::Formatter().make_group("Global options", false, global);
}

}  // namespace

Command parse_command_line(const std::vector<std::string>& words) {
    Command command;
    CLI::App app{"Vantlow fetches files: over several connections at once, across bad networks, never wrong.",
                 "vantlow"};
    bool version = false;
    std::string data_folder;
    std::string settings_file;
    app.set_help_flag("-h,--help", "This text");
    app.add_flag("--version", version, "Version, platform and run-time libraries");
    add_global_options(app, command.global, data_folder, settings_file);
    std::vector<std::string> links;
    app.add_option("LINK", links,
                   "Links and files to fetch with the resident program, which starts where it does "
                   "not run yet");
    CommandSet commands(app);
    add_commands(commands);
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend());
        app.parse(std::move(reversed));
    } catch (const CLI::CallForHelp&) {
        command.text = help_of(app);
        return command;
    } catch (const CLI::ParseError& error) {
        return complain(error.what(), said_words(app));
    }
    command.global.data_folder = to_utf16(data_folder);
    command.global.settings_file = to_utf16(settings_file);
    if (version) {
        command.run = run_version;
        return command;
    }
    const CommandSet::Entry* chosen = commands.chosen();
    if (chosen == nullptr) return desktop_command(std::move(command), std::move(links));
    // What the command itself had no place for.
    if (!links.empty()) return complain(chosen->word->get_name() + ": what is \"" + links.front() + "\"?");
    if (chosen->check) {
        if (const Complaint complaint = chosen->check()) {
            return complain(chosen->word->get_name() + ": " + *complaint, said_words(app));
        }
    }
    command.run = chosen->run;
    command.place = chosen->place;
    return command;
}

}  // namespace vantlow
