#include "app/resident/serve.h"

#include <memory>

#include "app/cli/engine_voice.h"
#include "app/cli/store/store_command.h"
#include "app/process/dial_up.h"
#include "app/process/hand_over.h"
#include "app/process/system_settings.h"
#include "app/resident/resident.h"
#include "base/text.h"
#include "platform/associations.h"
#include "platform/background_process.h"
#include "platform/process.h"
#include "transfer/connection/stream.h"

namespace vantlow {
namespace {

// Whoever is asked may be away for a while; a job that waits for an answer keeps its place so long.
constexpr std::chrono::minutes question_patience{5};
constexpr std::chrono::seconds start_patience{60};
constexpr std::chrono::milliseconds step{20};
constexpr std::size_t longest_output = 1U << 20U;

struct ServeOptions {
    bool foreground = false;
    bool background = false;
};

void start_all(Engine& engine) {
    for (const CJobNode* job : engine.jobs_below(nullptr)) {
        if (job->state != JobState::finished) static_cast<void>(engine.start(job->identity));
    }
}

// Asks the data folder's owner whether it runs; it says so itself. False when there is none yet.
bool owner_says_that_it_runs(CFerrywellApp& app, const GlobalOptions& global) {
    const std::string address = DataFolderLock::read(app.data_folder());
    if (address.empty()) return false;
    HandedOver words{{"serve"}, {}, {}};
    if (global.quiet) words.words.emplace_back("--quiet");
    const FrameAnswer answer = ask_frame(address, encode(words), app.stop());
    const auto said = decode_answer(answer.answer);
    if (answer.state != FrameAnswer::State::answered || !said) return false;
    write_stream(Stream::error, said->error);
    return true;
}

// What a process in the background has said so far.
void pass_on(const std::u16string& output) {
    std::vector<std::byte> bytes;
    if (!read_file(output, longest_output, bytes).ok()) return;
    write_stream(Stream::error, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

Exit run_serve(CFerrywellApp& app, const GlobalOptions& global, const ServeOptions& options,
               const std::vector<std::string>& words) {
    if (app.runs_jobs()) {
        tell_that_it_runs(app, global);
        return Exit::done;
    }
    // Who redirects its output, or starts it as a service, wants to have the process itself.
    const bool at_terminal = is_terminal(Stream::output) && is_terminal(Stream::error);
    const bool background = options.background || (at_terminal && !options.foreground);
    return background && !global.in_background ? start_in_background(app, global, words)
                                               : stay_resident(app, global);
}

}  // namespace

void tell_that_it_runs(CFerrywellApp& app, const GlobalOptions& global) {
    if (global.quiet) return;
    const std::string folder = to_utf8(app.data_folder());
    const std::string words = app.is_folder_named() ? "vantlow --data-dir \"" + folder + "\" " : "vantlow ";
    tell("Vantlow is running (process " + std::to_string(process_id()) + ", data folder " + folder +
         "). Use it from any terminal, for example with '" + words + "list'; '" + words + "quit' ends it.");
}

Exit stay_resident(CFerrywellApp& app, const GlobalOptions& global, const std::function<void()>& begin) {
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
    // Whoever started it in the background says it.
    if (!global.in_background) tell_that_it_runs(app, global);
    if (app.settings().flag(setting::start_all)) start_all(*engine);
    if (begin) begin();
    const Exit status = resident.run();
    engine->remove_listener(voice);
    return status;
}

Exit start_in_background(CFerrywellApp& app, const GlobalOptions& global, std::vector<std::string> words) {
    const std::u16string output = join_path(app.data_folder(), u"resident.log");
    // In front: behind "--" it would be a link.
    words.insert(words.begin(), "--started-in-background");
    // The new process takes both.
    app.folder_lock().release();
    app.session().release();
    std::string error;
    const auto process = BackgroundProcess::start(app.program_file(), words, output, error);
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
                            ") was started, but does not answer yet. Its messages stand in " +
                            to_utf8(output) + ".");
        }
    }
    pass_on(output);
    return Exit::done;
}

void add_serve_command(CommandSet& commands, const std::vector<std::string>& words) {
    const auto options = std::make_shared<ServeOptions>();
    CLI::App& serve =
        commands.add_at(Place::desktop, "serve", "Start the resident program without a window, for servers",
                        [options, words](CFerrywellApp& app, const GlobalOptions& global) {
                            return run_serve(app, global, *options, words);
                        });
    CLI::Option* const foreground =
        serve.add_flag("--foreground", options->foreground,
                       "Stay in this process, as services do; the default without a terminal");
    serve
        .add_flag("--background", options->background,
                  "Return as soon as it runs in a process of its own; the default at a terminal")
        ->excludes(foreground);
}

}  // namespace vantlow
