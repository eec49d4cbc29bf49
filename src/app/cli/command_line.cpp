// The reading of a command line: the options that every command knows, help, version, and complaints.
#include <utility>

#include "app/cli/command_set.h"
#include "app/process/application.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/file.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// The control API of this run: its settings, under words of their own.
void add_control_options(CLI::App& app, GlobalOptions& global) {
    const auto set = [&global](const std::string& name, const std::string& value) {
        global.set.push_back("RPC/" + name + "=" + value);
    };
    const auto listen = [set](const std::string& place) {
        const auto colon = place.rfind(':');
        if (colon == std::string::npos) throw CLI::ValidationError("--rpc-listen", "takes ADDRESS:PORT");
        set("Enable", "1");
        set("Listen", place.substr(0, colon));
        set("Port", place.substr(colon + 1));
    };
    const auto allow = [set](const std::vector<std::string>& origins) {
        std::string all;
        for (const std::string& origin : origins) all += (all.empty() ? "" : " ") + origin;
        set("AllowOrigin", all);
    };
    app.add_option_function<std::string>(
        "--rpc-listen", listen,
        "ADDRESS:PORT: open the control API of the resident program there, for this run");
    app.add_option_function<std::string>(
        "--rpc-secret", [set](const std::string& secret) { set("Secret", secret); },
        "The secret that others have to show it in this run; none: no secret");
    app.add_flag_function(
        "--rpc-tls", [set](std::int64_t) { set("TLS", "1"); }, "Reach it over TLS only, in this run");
    app.add_option_function<std::vector<std::string>>(
        "--rpc-allow-origin", allow, "A web page that may use it, such as https://host; repeatable");
}

void add_global_options(CLI::App& app, GlobalOptions& global, std::string& data_folder,
                        std::string& settings_file) {
    app.add_option("--data-dir", data_folder, "The data folder, with jobs, logs and proxy list")
        ->envname("VANTLOW_DATA_DIR");
    app.add_option("--settings", settings_file, "A settings file to use instead of the user's settings")
        ->envname("VANTLOW_SETTINGS")
        ->check([](const std::string& path) {
            const bool is_folder = path_kind(absolute_path(to_utf16(path))) == PathKind::folder;
            return is_folder ? path + " is a folder." : std::string();
        });
    app.add_option("--set", global.set, "Section/Key=Value: one setting for this run; repeatable");
    app.add_flag("--json", global.json, "Output for programs");
    app.add_flag("-q,--quiet", global.quiet, "Print errors only");
    app.add_flag("-v,--verbose", global.verbose, "Print the job log, line by line, to stderr");
    app.add_flag("--minimized", global.minimized, "Start with the window minimised, or in the tray");
    app.add_flag("--no-window", global.no_window, "Run the resident program without a window")
        ->envname("VANTLOW_NO_WINDOW");
    add_control_options(app, global);
    // Said by the program itself.
    app.add_flag("--started-in-background", global.in_background)->group("");
    app.add_flag("--at-terminal", global.at_terminal)->group("");
}

// Returns the program's name and the words of the command that was named: "vantlow settings get".
std::string named_words(const CLI::App& app) {
    const auto below = app.get_subcommands();
    return below.empty() ? app.get_name() : app.get_name() + " " + named_words(*below.front());
}

Command complain_of(const CLI::App& app, const std::string& text) {
    Command command;
    const std::string words = named_words(app);
    command.text = words + ": " + text + "\nTry '" + words + " --help'.\n";
    command.status = Exit::usage;
    return command;
}

// Returns the help of the command that was named, with the options that every command has.
std::string help_text(const CLI::App& app) {
    std::string text = app.help();
    if (app.get_subcommands().empty()) return text;
    const auto global = app.get_options([](const CLI::Option* option) {
        return option->nonpositional() && !option->get_group().empty() && !option->check_lname("help") &&
               !option->check_lname("version");
    });
    return text + CLI::Formatter().make_group("Global options", false, global);
}

// Prints the version, the platform, and for each run-time library whether it loads.
Exit run_version(CFerrywellApp& app, const GlobalOptions& /*global*/) {
    std::string text = "Vantlow " + to_utf8(app.version()) + "\n" + std::string(platform_name()) + "\n";
    for (const auto& [library, loaded] : loaded_libraries(app.libraries())) {
        // A library that Vantlow does not bring yet is none that is missing.
        const bool is_to_come = library.starts_with("libKAD.") || library.starts_with("libBTDHT.") ||
                                library.starts_with("libcrypto5.");
        if (is_to_come && !loaded) continue;
        text += library + ": " + (loaded ? "loaded" : "not found") + "\n";
    }
    write_stream(Stream::output, text);
    return Exit::done;
}

// The parser's own words, but where they are no sentence.
std::string sentence_of(const CLI::ParseError& error) {
    const std::string text = error.what();
    const std::string subject = text.substr(0, text.find(':'));
    if (text.find(": At Most 1 ") != std::string::npos) return subject + " may be given only once.";
    if (error.get_name() == "ArgumentMismatch") return subject + " needs a value.";
    return text;
}

// Returns the command that was asked for, after its checks; a complaint where they fail.
Command chosen_command(const CLI::App& app, const CommandSet& commands) {
    const CommandSet::Entry& chosen = commands.chosen();
    const bool is_named = chosen.word != &app;
    const CLI::Option* const links = app.get_option_no_throw("LINK");
    // The links' place takes the words that the command itself had none for.
    if (is_named && links != nullptr && !links->results().empty())
        return complain_of(app, "unexpected word \"" + links->results().front() + "\".");
    if (chosen.check) {
        if (const Complaint complaint = chosen.check()) return complain_of(app, *complaint);
    }
    Command command;
    command.run = chosen.run;
    command.place = chosen.place;
    command.shows_window = !is_named;
    if (!command.run) command.text = help_text(app);
    return command;
}

// An option that can be repeated takes one word each time: those behind it are jobs, links or files.
void take_one_word_each(CLI::App& app) {
    for (CLI::Option* const option : app.get_options()) {
        if (option->nonpositional() && option->get_expected_max() == CLI::detail::expected_max_vector_size)
            option->allow_extra_args(false);
    }
    for (CLI::App* const below : app.get_subcommands([](const CLI::App*) { return true; }))
        take_one_word_each(*below);
}

}  // namespace

Command read_command_line(const Words& words, const std::function<void(CommandSet&)>& add_commands,
                          ReadWords read) {
    CLI::App app{"Vantlow fetches files: over several connections at once, across bad networks, never wrong.",
                 "vantlow"};
    GlobalOptions global;
    bool version = false;
    std::string data_folder;
    std::string settings_file;
    app.set_help_flag("-h,--help", "Print this help");
    app.add_flag("--version", version, "Print version, platform and run-time libraries");
    add_global_options(app, global, data_folder, settings_file);
    CommandSet commands(app, words, read);
    add_commands(commands);
    take_one_word_each(app);
    Command command;
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend());
        app.parse(std::move(reversed));
    } catch (const CLI::CallForHelp&) {
        command.text = help_text(app);
        command.global = std::move(global);
        return command;
    } catch (const CLI::ParseError& error) {
        return complain_of(app, sentence_of(error));
    }
    if (version) {
        command.run = run_version;
    } else {
        command = chosen_command(app, commands);
    }
    command.global = std::move(global);
    command.shows_window = command.shows_window && !command.global.no_window && !command.global.minimized;
    command.global.data_folder = to_utf16(data_folder);
    command.global.settings_file = to_utf16(settings_file);
    return command;
}

}  // namespace vantlow
