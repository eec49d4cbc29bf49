// The starts of the resident program: as a service, in the background, or with links; and its end.
#include <algorithm>
#include <functional>
#include <memory>

#include "app/cli/command_set.h"
#include "app/cli/engine_texts.h"
#include "app/cli/store/store_command.h"
#include "app/process/hand_over.h"
#include "app/process/system_settings.h"
#include "app/resident/resident.h"
#include "base/text.h"
#include "platform/associations.h"
#include "platform/background_process.h"
#include "platform/event_loop.h"
#include "platform/process.h"
#include "transfer/connection/stream.h"

namespace vantlow {
namespace {

// People may be away for a while; a job that waits for their answer keeps its place so long.
constexpr std::chrono::minutes question_patience{5};
constexpr std::chrono::seconds start_patience{60};
constexpr std::chrono::milliseconds step{20};
constexpr std::size_t longest_output = 1U << 20U;

struct ServeOptions {
    bool foreground = false;
    bool background = false;
};

// The command line that starts the resident program, and the reader for those that other starts hand over to
// it.
struct Start {
    Words words;
    ReadWords read;
};

void start_all(Engine& engine) {
    for (const CJobNode* job : engine.jobs_below(nullptr)) {
        const bool would_send_again = job->form && job->state == JobState::failed;
        if (job->state != JobState::finished && !would_send_again)
            static_cast<void>(engine.start(job->identity));
    }
}

// Has the owner of the data folder say that it runs. False when there is no owner yet.
bool owner_says_that_it_runs(CFerrywellApp& app, const GlobalOptions& global) {
    const std::string address = DataFolderLock::read(app.data_folder());
    if (address.empty()) return false;
    HandedOver words{{"serve"}, {}, {}};
    if (global.quiet) words.words.emplace_back("--quiet");
    const ProcessAnswer answer = ask_process(address, encode(words), app.stop());
    const auto said = decode_answer(answer.answer);
    if (answer.state != ProcessAnswer::State::answered || !said) return false;
    write_stream(Stream::error, said->error);
    return true;
}

// Passes on the messages that a process in the background has written so far.
void pass_on(const std::u16string& output) {
    std::vector<std::byte> bytes;
    if (!read_file(output, longest_output, bytes).ok()) return;
    write_stream(Stream::error, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Says on stderr that Vantlow is running, in which process, and how it is reached.
void tell_that_it_runs(CFerrywellApp& app, const GlobalOptions& global) {
    if (global.quiet) return;
    const std::string folder = to_utf8(app.data_folder());
    const std::string words = app.is_folder_named() ? "vantlow --data-dir \"" + folder + "\" " : "vantlow ";
    tell("Vantlow is running (process " + std::to_string(process_id()) + ", data folder " + folder +
         "). Use it from any terminal, for example with '" + words + "list'; '" + words + "quit' ends it.");
}

// Returns the window that this process opens, where it has one and was started to; says so where the display
// cannot be used.
Desktop* window_to_open(CFerrywellApp& app, const GlobalOptions& global) {
    if (app.desktop() == nullptr || global.no_window) return nullptr;
    std::string error;
    if (app.desktop()->open(error)) return app.desktop();
    if (!global.quiet) tell(error + " Vantlow runs without a window.");
    return nullptr;
}

// The file of the messages of a process in the background.
std::u16string background_output(const CFerrywellApp& app) {
    return join_path(app.data_folder(), u"resident.log");
}

// Makes this process, which holds the lock of the data folder, the resident program: it says so in a line,
// calls `begin` and runs until it is told to quit; with `window` behind that window.
Exit stay_resident(CFerrywellApp& app, const GlobalOptions& global, const Start& start,
                   const std::function<void()>& begin = {}, Desktop* window = nullptr) {
    std::string error;
    if (global.in_background) app.set_output_file(background_output(app));
    Engine* const engine = app.engine(error);
    if (engine == nullptr) return complain(error);
    EngineVoice voice;
    Resident resident(app, *engine, start.read);
    if (!resident.open(EventLoop::Role::main, question_patience, window != nullptr, error))
        return complain(error);
    engine->add_listener(voice);
    resident.open_control();
    CJobLog dial_log;
    if (const Result dialled = dial_as_set(app, dial_log); !dialled.ok()) complain(dialled.message());
    associate_as_set(app);
    register_link_formats();
    // The process that started this one in the background says it itself.
    if (!global.in_background) tell_that_it_runs(app, global);
    if (app.settings().flag(setting::start_all)) start_all(*engine);
    if (begin) begin();
    if (window != nullptr) resident.show(*window, global.minimized);
    const Exit status = resident.run();
    engine->remove_listener(voice);
    return status;
}

// Starts the resident program in a process of its own, without a terminal, with these words (of the whole
// command line), and waits until it answers.
Exit start_in_background(CFerrywellApp& app, const GlobalOptions& global, Words words,
                         const std::u16string& program) {
    const std::u16string output = background_output(app);
    // The flag stands in front: behind "--" it would be a link.
    words.insert(words.begin(), "--started-in-background");
    // The new process takes the lock and the claim.
    app.folder_lock().release();
    app.session().release();
    std::string error;
    const auto process = BackgroundProcess::start(program, words, output, error);
    if (!process) return complain(error);
    const auto until = from_now(start_patience);
    while (!owner_says_that_it_runs(app, global)) {
        if (const auto status = process->ended()) {
            pass_on(output);
            complain("The resident program ended while it was starting.");
            return *status == 0 ? Exit::failed : static_cast<Exit>(*status);
        }
        if (Clock::now() >= until || app.stop().wait_for(step)) {
            pass_on(output);
            return complain("The resident program (process " + std::to_string(process->id()) +
                            ") was started, but does not answer yet. Its messages are in " + to_utf8(output) +
                            ".");
        }
    }
    pass_on(output);
    return Exit::done;
}

Exit run_serve(CFerrywellApp& app, const GlobalOptions& global, const ServeOptions& options,
               const Start& start) {
    if (app.runs_jobs()) {
        tell_that_it_runs(app, global);
        return Exit::done;
    }
    // A redirected output, or a start as a service, asks for the process itself.
    const bool at_terminal = is_terminal(Stream::output) && is_terminal(Stream::error);
    const bool background = options.background || (at_terminal && !options.foreground);
    return background && !global.in_background
               ? start_in_background(app, global, start.words, app.program_file())
               : stay_resident(app, global, start);
}

// Takes the path out of a file's link, as desktops write them (RFC 8089): "file:///a%20b".
std::string plain_path(const std::string& link) {
    constexpr std::string_view scheme = "file://";
    if (!istarts_with(link, scheme)) return link;
    std::string path = percent_decode(std::string_view(link).substr(scheme.size()));
    const bool drive = path_separator() == u'\\' && path.size() > 2 && path[0] == '/' && path[2] == ':';
    return drive ? path.substr(1) : path;
}

// Files the jobs of the links in the first category, and starts them.
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

// Complains of a word that is neither a link nor a file: it is a mistyped command.
Complaint check_links(const std::vector<std::string>& links) {
    for (const std::string& link : links) {
        const bool like_a_link = link.find_first_of("./\\:") != std::string::npos;
        if (like_a_link || path_kind(absolute_path(to_utf16(link))) != PathKind::none) continue;
        return "\"" + link + "\" is neither a command nor a link nor a file.";
    }
    return std::nullopt;
}

// Returns the program with the window, which stands beside this one where it was installed; empty where there
// is none, no window wanted or no display, which is said.
std::u16string program_with_window(CFerrywellApp& app, const GlobalOptions& global) {
    if (global.no_window || app.desktop() != nullptr) return {};
    const std::u16string& own = app.program_file();
    const std::u16string ending = own.ends_with(u".exe") ? u".exe" : u"";
    const std::u16string program = join_path(folder_of(own), u"vantlow-desktop" + ending);
    if (path_kind(program) != PathKind::file) return {};
    if (has_display()) return program;
    if (!global.quiet) tell("There is no display. Vantlow runs without a window.");
    return {};
}

Exit open_links(CFerrywellApp& app, const GlobalOptions& global, const std::vector<std::string>& links,
                const Start& start) {
    const auto take_links = [&] {
        return on_store([&](StoreCommand& command) { return add_and_start(command, links); })(app, global);
    };
    if (app.runs_jobs()) {
        if (!links.empty()) return take_links();
        tell_that_it_runs(app, global);
        return Exit::done;
    }
    const std::u16string with_window = program_with_window(app, global);
    if (!with_window.empty()) return start_in_background(app, global, start.words, with_window);
    const bool at_terminal = is_terminal(Stream::output) || is_terminal(Stream::error);
    if (at_terminal && !can_outlive_terminal() && !global.in_background)
        return start_in_background(app, global, start.words, app.program_file());
    const auto begin = [&] {
        if (!links.empty()) static_cast<void>(take_links());  // its complaints are written; the process stays
    };
    return stay_resident(app, global, start, begin, window_to_open(app, global));
}

}  // namespace

Exit start_resident(CFerrywellApp& app, const GlobalOptions& global) {
    const FileError error = make_folders(app.data_folder());
    if (!error.ok()) return complain(to_utf8(app.data_folder()) + ": " + error.text());
    Words words;
    if (app.is_folder_named()) words = {"--data-dir", to_utf8(app.data_folder())};
    if (!global.settings_file.empty())
        words.insert(words.end(), {"--settings", to_utf8(absolute_path(global.settings_file))});
    const std::u16string with_window = program_with_window(app, global);
    if (!with_window.empty()) return start_in_background(app, global, std::move(words), with_window);
    words.emplace_back("serve");
    return start_in_background(app, global, std::move(words), app.program_file());
}

void add_serve_command(CommandSet& commands) {
    const auto options = std::make_shared<ServeOptions>();
    const Start start{commands.words(), commands.reader()};
    CLI::App& serve =
        commands.add_at(Place::instance, "serve", "Start the resident program without a window, for servers",
                        [options, start](CFerrywellApp& app, const GlobalOptions& global) {
                            return run_serve(app, global, *options, start);
                        });
    CLI::Option* const foreground =
        serve.add_flag("--foreground", options->foreground,
                       "Stay in this process, as services do; the default without a terminal");
    serve
        .add_flag("--background", options->background,
                  "Return as soon as it runs in a process of its own; the default at a terminal")
        ->excludes(foreground);
}

void add_links_command(CommandSet& commands) {
    const auto links = std::make_shared<std::vector<std::string>>();
    const Start start{commands.words(), commands.reader()};
    commands.add_links(
        *links, "Links and files for the resident program, which is started where it is not running",
        [links, start](CFerrywellApp& app, const GlobalOptions& global) {
            return open_links(app, global, *links, start);
        },
        [links] { return check_links(*links); });
}

void add_quit_command(CommandSet& commands) {
    commands.add_at(Place::quit, "quit", "End the resident program, after saving everything",
                    [](CFerrywellApp&, const GlobalOptions&) {
                        complain("Vantlow is not running.");
                        return Exit::failed;
                    });
}

}  // namespace vantlow
