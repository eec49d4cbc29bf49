#include "app/cli/command_line.h"

#include <utility>

#include "app/cli/get/get_command.h"
#include "app/cli/store/store_commands.h"
#include "app/cli/tools/combine_command.h"
#include "app/cli/tools/link_commands.h"
#include "app/cli/tools/media_command.h"
#include "app/cli/tools/torrent_commands.h"
#include "app/cli/version_command.h"
#include "app/resident/open_links.h"
#include "app/resident/serve.h"
#include "base/text.h"

namespace vantlow {
namespace {

void add_commands(CommandSet& commands, const std::vector<std::string>& words) {
    add_get_command(commands);
    add_serve_command(commands, words);
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
    app.add_option("--data-dir", data_folder, "The data folder, with jobs, logs and proxy list")
        ->envname("VANTLOW_DATA_DIR");
    app.add_option("--settings", settings_file, "A settings file to use instead of the user's settings")
        ->envname("VANTLOW_SETTINGS");
    app.add_option("--set", global.set, "Section/Key=Value: one setting for this run; repeatable")
        ->allow_extra_args(false);
    app.add_flag("--json", global.json, "Output for programs");
    app.add_flag("-q,--quiet", global.quiet, "Print errors only");
    app.add_flag("-v,--verbose", global.verbose, "Print the job log, line by line, to stderr");
    app.add_flag("--no-window", global.no_window, "Run the resident program without a window");
    app.add_flag("--started-in-background", global.in_background)->group("");  // by the program itself
}

// The program's name and the words of the command that was named: "vantlow settings get".
std::string named_words(const CLI::App& app) {
    const auto below = app.get_subcommands();
    return below.empty() ? app.get_name() : app.get_name() + " " + named_words(*below.front());
}

Command complain(const CLI::App& app, const std::string& text) {
    Command command;
    command.text = "vantlow: " + text + "\nTry '" + named_words(app) + " --help'.\n";
    command.status = Exit::usage;
    return command;
}

Command desktop_command(const CLI::App& root, Command command, std::vector<std::string> links,
                        std::vector<std::string> words) {
    if (const Complaint complaint = check_desktop_links(links)) return complain(root, *complaint);
    command.place = Place::desktop;
    command.run = [links = std::move(links), words = std::move(words)](CFerrywellApp& app,
                                                                       const GlobalOptions& global) {
        return run_desktop(app, global, links, words);
    };
    return command;
}

// The help of the command that was named, with the options that every command has.
std::string help_text(const CLI::App& app) {
    std::string text = app.help();
    if (app.get_subcommands().empty()) return text;
    const auto global = app.get_options([](const CLI::Option* option) {
        return option->nonpositional() && !option->get_group().empty() && !option->check_lname("help") &&
               !option->check_lname("version");
    });
    return text + CLI::Formatter().make_group("Global options", false, global);
}

}  // namespace

Command parse_command_line(const std::vector<std::string>& words) {
    Command command;
    CLI::App app{"Vantlow fetches files: over several connections at once, across bad networks, never wrong.",
                 "vantlow"};
    bool version = false;
    std::string data_folder;
    std::string settings_file;
    app.set_help_flag("-h,--help", "Print this help");
    app.add_flag("--version", version, "Print version, platform and run-time libraries");
    add_global_options(app, command.global, data_folder, settings_file);
    std::vector<std::string> links;
    app.add_option("LINK", links,
                   "Links and files for the resident program, which is started where it is not running");
    CommandSet commands(app);
    add_commands(commands, words);
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend());
        app.parse(std::move(reversed));
    } catch (const CLI::CallForHelp&) {
        command.text = help_text(app);
        return command;
    } catch (const CLI::ParseError& error) {
        return complain(app, error.what());
    }
    command.global.data_folder = to_utf16(data_folder);
    command.global.settings_file = to_utf16(settings_file);
    if (version) {
        command.run = run_version;
        return command;
    }
    const CommandSet::Entry* chosen = commands.chosen();
    if (chosen == nullptr) return desktop_command(app, std::move(command), std::move(links), words);
    // What the command itself had no place for.
    if (!links.empty())
        return complain(app, chosen->word->get_name() + ": unexpected word \"" + links.front() + "\".");
    if (chosen->check) {
        if (const Complaint complaint = chosen->check()) {
            return complain(app, chosen->word->get_name() + ": " + *complaint);
        }
    }
    command.run = chosen->run;
    command.place = chosen->place;
    return command;
}

}  // namespace vantlow
