#include "app/dispatch.h"

#include <algorithm>
#include <optional>

#include "app/cli/store/store_command.h"
#include "app/process/hand_over.h"
#include "base/text.h"
#include "platform/frame.h"
#include "transfer/connection/stream.h"

namespace vantlow {
namespace {

using Claim = DataFolderLock::Claim;

// Commands that work on the folder by themselves are done in less.
constexpr std::chrono::seconds patience{10};
// An instance that ends first ends its jobs and saves.
constexpr std::chrono::seconds end_patience{120};
constexpr std::chrono::milliseconds step{20};
constexpr std::size_t largest_input = 60U << 20U;

std::string request_of(const std::vector<std::string>& words) {
    HandedOver request{words, to_utf8(absolute_path(u".")), {}};
    const bool reads_input = std::any_of(words.begin(), words.end(), [](const std::string& word) {
        return word == "-" || word == "-i-" || word.ends_with("=-");
    });
    if (reads_input) request.input = read_standard_input(largest_input);
    return encode(request);
}

/// The way of one command to another process. What it needs of this one is read once.
class HandOver {
  public:
    HandOver(CFerrywellApp& app, const Command& command, const std::vector<std::string>& words)
        : app_(app), command_(command), words_(words) {}

    /// The status of the command there; none when nobody is there.
    std::optional<Exit> to(const std::string& address) {
        if (address.empty()) return std::nullopt;
        if (command_.place == Place::desktop) bring_to_front(address);
        if (!request_) request_ = request_of(words_);
        const FrameAnswer answer = ask_frame(address, *request_, app_.stop(), [](std::int64_t process) {
            tell("The running Vantlow" + with_number(process) +
                 " is busy with something else. This command waits for it.");
        });
        if (answer.state == FrameAnswer::State::not_there) return std::nullopt;
        if (answer.state == FrameAnswer::State::not_taken) {
            is_refused_ = true;
            return complain("The running Vantlow" + with_number(answer.process) +
                            " does not answer: it is frozen or was stopped. Nothing was done. If it does not "
                            "come back, end that process and try again.");
        }
        const auto said = decode_answer(answer.answer);
        if (answer.state == FrameAnswer::State::lost || !said) {
            complain("The running Vantlow ended before it answered.");
            return Exit::failed;
        }
        write_stream(Stream::output, said->output);
        write_stream(Stream::error, said->error);
        return said->status;
    }

    /// Somebody was there and did not answer.
    [[nodiscard]] bool is_refused() const noexcept { return is_refused_; }

  private:
    static std::string with_number(std::int64_t process) {
        return process > 0 ? " (process " + std::to_string(process) + ")" : std::string();
    }

    CFerrywellApp& app_;
    bool is_refused_ = false;
    const Command& command_;
    const std::vector<std::string>& words_;
    std::optional<std::string> request_;
};

Claim claim_folder(CFerrywellApp& app, const Command& command) {
    FileError error;
    Claim claim = app.folder_lock().claim(app.data_folder(), error);
    if (claim == Claim::no_disk && command.place == Place::desktop) claim = Claim::failed;
    if (claim == Claim::failed) {
        complain("The data folder " + to_utf8(app.data_folder()) + " cannot be used: " + error.text());
    }
    return claim;
}

Exit complain_in_use(const CFerrywellApp& app) {
    complain("The data folder " + to_utf8(app.data_folder()) + " is in use by another Vantlow.");
    return Exit::failed;
}

/// Tells once that a command waits, when it has waited for some time.
class WaitingTold {
  public:
    void look(const std::string& text) {
        if (told_ || Clock::now() < at_) return;
        told_ = true;
        tell(text);
    }

  private:
    Clock::time_point at_ = from_now(frame_patience);
    bool told_ = false;
};

// Hands the command to the folder's owner, or takes the folder and runs it here.
Exit run_on_folder(CFerrywellApp& app, const Command& command, HandOver& hand_over) {
    const auto until = from_now(patience);
    WaitingTold waiting;
    do {
        switch (claim_folder(app, command)) {
            case Claim::mine:
            case Claim::no_disk:  // reading can be done all the same
                return command.run(app, command.global);
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

// The one instance of the session: none when this process may become it.
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
        // Its end is what was asked for, so it is waited for.
        if (Clock::now() >= until || app.stop().wait_for(step)) return complain_in_use(app);
    }
    while (other_folder && !app.session().claim()) {
        if (Clock::now() >= until || app.stop().wait_for(step)) return Exit::failed;
    }
    return status ? *status : command.run(app, command.global);
}

}  // namespace

Exit run_command(CFerrywellApp& app, const Command& command, const std::vector<std::string>& words) {
    HandOver hand_over(app, command, words);
    switch (command.place) {
        case Place::here:
            return command.run(app, command.global);
        case Place::quit:
            return quit_instance(app, command, hand_over);
        case Place::desktop:
            if (const auto status = to_session(app, hand_over)) return *status;
            return run_on_folder(app, command, hand_over);
        case Place::data_folder:
            return run_on_folder(app, command, hand_over);
    }
    return Exit::failed;
}

}  // namespace vantlow
