// The commands that the program knows, and where a command runs: here, or in the process that owns the data
// folder.
#include "app/program.h"

#include <algorithm>
#include <optional>

#include "app/browser/browser.h"
#include "app/cli/command_set.h"
#include "app/cli/get/get_run.h"
#include "app/cli/store/store_command.h"
#include "app/cli/tools/tools.h"
#include "app/process/application.h"
#include "app/process/data_folder_change.h"
#include "app/process/ending.h"
#include "app/process/hand_over.h"
#include "app/process/known_settings.h"
#include "app/resident/resident.h"
#include "app/rpc/control_commands.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/event_loop.h"
#include "transfer/connection/stream.h"

namespace vantlow {
namespace {

using Claim = DataFolderLock::Claim;

// A command that works on the folder by itself is done in less.
constexpr std::chrono::seconds patience{10};
// An instance ends its jobs and saves before it ends.
constexpr std::chrono::seconds end_patience{120};
constexpr std::chrono::milliseconds step{20};
constexpr std::size_t largest_input = 60U << 20U;

// Adds all commands, in the order of the help.
void add_commands(CommandSet& commands) {
    add_links_command(commands);
    add_get_command(commands);
    add_serve_command(commands);
    add_link_commands(commands);
    add_add_command(commands);
    add_list_commands(commands);
    add_start_command(commands);
    add_steer_commands(commands);
    add_change_commands(commands);
    add_question_commands(commands);
    add_category_commands(commands);
    add_schedule_command(commands);
    add_list_file_commands(commands);
    add_settings_commands(commands);
    add_torrent_commands(commands);
    add_torrent_job_commands(commands);
    add_scrape_command(commands);
    add_combine_command(commands);
    add_media_command(commands);
    add_proxy_commands(commands);
    add_control_commands(commands);
    add_browser_commands(commands);
    add_native_host_commands(commands);
    add_quit_command(commands);
}

std::string request_of(const Words& words) {
    HandedOver request{words, to_utf8(absolute_path(u".")), {}};
    // In front: behind "--" it would be a link.
    if (is_terminal(Stream::output)) request.words.insert(request.words.begin(), "--at-terminal");
    const bool reads_input = std::any_of(words.begin(), words.end(), [](const std::string& word) {
        return word == "-" || word == "-i-" || word.ends_with("=-");
    });
    if (reads_input) request.input = read_standard_input(largest_input);
    return encode(request);
}

/// The way of one command to another process. The request, with the standard input, is made once.
class HandOver {
  public:
    HandOver(CFerrywellApp& app, const Command& command, const Words& words)
        : app_(app), command_(command), words_(words) {}

    /// Returns the status of the command there; none when no process is there.
    std::optional<Exit> to(const std::string& address) {
        if (address.empty()) return std::nullopt;
        if (command_.place == Place::instance) bring_to_front(address);
        if (!request_) request_ = request_of(words_);
        const ProcessAnswer answer = ask_process(address, *request_, app_.stop(), [](std::int64_t process) {
            tell("The running Vantlow" + with_number(process) +
                 " is busy with something else. This command waits for it.");
        });
        if (answer.state == ProcessAnswer::State::not_there) return std::nullopt;
        if (answer.state == ProcessAnswer::State::not_taken) {
            is_refused_ = true;
            return complain("The running Vantlow" + with_number(answer.process) +
                            " does not answer: it is frozen or was stopped. Nothing was done. If it does not "
                            "come back, end that process and try again.");
        }
        const auto said = decode_answer(answer.answer);
        if (answer.state == ProcessAnswer::State::lost || !said) {
            complain("The running Vantlow ended before it answered.");
            return Exit::failed;
        }
        write_stream(Stream::output, said->output);
        write_stream(Stream::error, said->error);
        return said->status;
    }

    /// True when a process was there and did not answer.
    [[nodiscard]] bool is_refused() const noexcept { return is_refused_; }

  private:
    static std::string with_number(std::int64_t process) {
        return process > 0 ? " (process " + std::to_string(process) + ")" : std::string();
    }

    CFerrywellApp& app_;
    bool is_refused_ = false;
    const Command& command_;
    const Words& words_;
    std::optional<std::string> request_;
};

Claim claim_folder(CFerrywellApp& app, const Command& command) {
    FileError error;
    Claim claim = app.folder_lock().claim(app.data_folder(), error);
    if (claim == Claim::mine && app.is_folder_named()) keep_data_folder(app.data_folder());
    if (claim == Claim::mine && app.leaves_data_folder()) app.settle_data_folder();
    if (claim == Claim::no_disk && command.place == Place::instance) claim = Claim::failed;
    if (claim == Claim::failed) {
        complain("The data folder " + to_utf8(app.data_folder()) + " cannot be used: " + error.text());
    }
    return claim;
}

Exit complain_in_use(const CFerrywellApp& app) {
    complain("The data folder " + to_utf8(app.data_folder()) + " is in use by another Vantlow.");
    return Exit::failed;
}

/// Says once that a command waits, when it has waited for some time.
class WaitingNotice {
  public:
    void look(const std::string& text) {
        if (said_ || Clock::now() < at_) return;
        said_ = true;
        tell(text);
    }

  private:
    Clock::time_point at_ = from_now(silence_patience);
    bool said_ = false;
};

// Hands the command to the folder's owner, or takes the folder and runs it here.
Exit run_on_folder(CFerrywellApp& app, const Command& command, HandOver& hand_over) {
    const auto until = from_now(patience);
    WaitingNotice waiting;
    do {
        switch (claim_folder(app, command)) {
            case Claim::mine:
            case Claim::no_disk: {  // a command that only reads can do without
                const Exit status = command.run(app, command.global);
                // While the instance ran another data folder may have been chosen.
                if (command.place == Place::instance) app.settle_data_folder();
                return status;
            }
            case Claim::failed:
                return Exit::failed;
            case Claim::taken:
                break;
        }
        if (const auto status = hand_over.to(DataFolderLock::read(app.data_folder()))) return *status;
        waiting.look("Another Vantlow works on the data folder " + to_utf8(app.data_folder()) +
                     ". This command waits for it.");
    } while (Clock::now() < until && !app.stop().wait_for(step));
    return complain_in_use(app);
}

// Hands the command to the one instance of the session; none when this process may become it.
std::optional<Exit> to_session(CFerrywellApp& app, HandOver& hand_over) {
    const auto until = from_now(patience);
    while (!app.session().claim()) {
        if (app.is_folder_named()) return std::nullopt;  // an instance of its own for this folder
        if (const auto status = hand_over.to(SessionClaim::find())) return status;
        if (Clock::now() >= until || app.stop().wait_for(step)) {
            complain("Another Vantlow runs in this session and does not answer.");
            return Exit::failed;
        }
    }
    return std::nullopt;
}

Exit quit_instance(CFerrywellApp& app, const Command& command, HandOver& hand_over) {
    std::optional<Exit> status;
    if (!app.is_folder_named() && !app.session().claim()) status = hand_over.to(SessionClaim::find());
    const bool other_folder = status.has_value();
    FileError error;
    const auto until = from_now(end_patience);
    while (app.folder_lock().claim(app.data_folder(), error) == Claim::taken) {
        if (hand_over.is_refused()) return Exit::failed;
        if (!status) status = hand_over.to(DataFolderLock::read(app.data_folder()));
        // The command is done when the owner has ended.
        if (Clock::now() >= until || app.stop().wait_for(step)) return complain_in_use(app);
    }
    while (other_folder && !app.session().claim()) {
        if (Clock::now() >= until || app.stop().wait_for(step)) return Exit::failed;
    }
    return status ? *status : command.run(app, command.global);
}

// Runs a command, which these words said. A command on the data folder is handed to the process that owns the
// folder; where that does not answer, the folder is waited for some seconds. A start with links and without a
// data folder named goes to the instance of this user session, whichever folder that has.
Exit run_command(CFerrywellApp& app, const Command& command, const Words& words) {
    HandOver hand_over(app, command, words);
    switch (command.place) {
        case Place::here:
            return command.run(app, command.global);
        case Place::quit:
            return quit_instance(app, command, hand_over);
        case Place::instance:
            if (const auto status = to_session(app, hand_over)) return *status;
            return run_on_folder(app, command, hand_over);
        case Place::data_folder:
            return run_on_folder(app, command, hand_over);
    }
    return Exit::failed;
}

Command read_words(const Words& words) {
    return read_command_line(without_browser_call(words), add_commands, read_words);
}

Exit run(const Words& words, Desktop* desktop) {
    Command command = read_words(words);
    command.global.at_terminal = is_terminal(Stream::output);
    if (!command.run) {
        write_stream(command.status == Exit::done ? Stream::output : Stream::error, command.text);
        return command.status;
    }
    CFerrywellApp app(desktop);
    std::string error;
    if (!app.start({command.global.settings_file, command.global.data_folder}, error)) {
        return complain(error);
    }
    if (const Complaint complaint = apply_overrides(command.global.set, app.settings())) {
        return complain(*complaint, Exit::usage);
    }
    return run_command(app, command, words);
}

}  // namespace

Exit run_program(const Words& words, Desktop* desktop) {
    return final_status(run(words, desktop));
}

}  // namespace vantlow
