#include "app/resident/resident.h"

#include "app/cli/command_line.h"
#include "app/cli/store/store_command.h"
#include "app/process/hand_over.h"
#include "base/text.h"
#include "platform/console_capture.h"
#include "platform/process.h"

namespace vantlow {
namespace {

constexpr std::chrono::seconds give_back_interval{30};

CommandAnswer run_words(CFerrywellApp& app, const Command& command) {
    CommandAnswer answer;
    if (!command.run) {
        (command.status == Exit::done ? answer.output : answer.error) = command.text;
        answer.status = command.status;
        return answer;
    }
    if (!command.global.set.empty()) complain("--set has no effect on the Vantlow that is running already.");
    app.settings().refresh();
    answer.status = command.run(app, command.global);
    return answer;
}

}  // namespace

Resident::~Resident() {
    engine_.end_running();
    watch_.reset();
    frame_.reset();
}

bool Resident::open(Frame::Role role, std::chrono::milliseconds question_time, bool gathers_log,
                    std::string& error) {
    Frame::Events frame;
    frame.on_timer = [this](int timer) { on_timer(timer); };
    frame.on_request = [this](const std::string& request, const Frame::Events::Reply& reply) {
        on_request(request, reply);
    };
    frame.on_session_end = [this] { close(); };
    frame_ = Frame::open(app_.data_folder(), role, std::move(frame), error);
    if (!frame_) return false;
    using HangUp = InterruptWatch::HangUp;
    watch_.emplace(&on_interrupt, this, role == Frame::Role::main ? HangUp::is_ignored : HangUp::interrupts);
    engine_.run({connections_, threads_, [this] { wake(); }, question_time, gathers_log});
    if (role == Frame::Role::main) app_.session().publish(frame_->address());
    return publish(error);
}

// Where the folder is not this process's, a further attempt says what keeps it from being that.
bool Resident::publish(std::string& error) {
    using Claim = DataFolderLock::Claim;
    FileError failure;
    DataFolderLock& lock = app_.folder_lock();
    const std::string folder = "The data folder " + to_utf8(app_.data_folder());
    const Claim claim = lock.is_mine() ? Claim::mine : lock.claim(app_.data_folder(), failure);
    if (claim == Claim::mine) failure = lock.publish(frame_->address());
    if (claim == Claim::taken) error = folder + " is in use by another Vantlow.";
    if (!failure.ok()) error = folder + " cannot be written: " + failure.text();
    return claim == Claim::mine && failure.ok();
}

void Resident::end_when_idle(Display display) {
    ends_when_idle_ = true;
    display_ = std::move(display);
}

// Any thread. One message for all the ends until the frame gets to it.
void Resident::wake() {
    if (woken_.exchange(true)) return;
    frame_->post([this] {
        woken_ = false;
        used_memory_ = true;
        engine_.pump();
        look_whether_idle();
    });
}

void Resident::look_whether_idle() {
    if (ends_when_idle_ && !engine_.has_work()) frame_->quit();
}

// What jobs and answers held goes back to the system while nobody waits for it.
void Resident::look_at_memory() {
    used_memory_ = used_memory_ || engine_.running() > 0;
    const Clock::time_point now = Clock::now();
    if (!used_memory_ || now < next_give_back_) return;
    used_memory_ = false;
    next_give_back_ = now + give_back_interval;
    give_back_memory();
}

void Resident::on_timer(int timer) {
    switch (timer) {
        case tick_timer:
            engine_.tick();
            engine_.pump();
            look_whether_idle();
            look_at_memory();
            break;
        case save_timer:
            engine_.save_behind();
            break;
        case display_timer:
            display_.show();
            break;
        default:
            break;
    }
}

void Resident::on_request(const std::string& request, const Frame::Events::Reply& reply) {
    const auto words = decode_words(request);
    if (!words) {
        reply(encode(CommandAnswer{
            Exit::usage,
            {},
            "vantlow: The running Vantlow does not understand this command; it may be another version.\n"}));
        return;
    }
    ConsoleCapture capture(words->input);
    const CurrentFolder folder(to_utf16(words->folder));
    const Command command = parse_command_line(words->words);
    CommandAnswer answer;
    const std::uint64_t before = engine_.revision();
    if (command.run && command.place == Place::quit) {
        answer.status = close() ? Exit::done : Exit::failed;
        frame_->quit();
    } else {
        answer = run_words(app_, command);
    }
    answer.output += capture.output();
    answer.error += capture.error();
    // Who only looks is answered on a full disk too.
    if (closed_ || engine_.revision() == before) {
        reply(encode(answer));
        wake();
        return;
    }
    // What a command says is true once it is safe.
    engine_.settle([this, reply, answer = std::move(answer)](const std::string& failure) mutable {
        if (!failure.empty()) {
            answer.status = Exit::failed;
            answer.output.clear();
            answer.error += "vantlow: " + failure + "\n";
        }
        reply(encode(answer));
        wake();
    });
}

bool Resident::close() {
    if (std::exchange(closed_, true)) return saved_;
    std::string error;
    saved_ = engine_.close(error);
    if (!saved_) complain(error);
    return saved_;
}

void Resident::on_interrupt(void* context, int count) {
    auto* const resident = static_cast<Resident*>(context);
    stop_at_interrupt(&resident->app_.stop(), count);
    resident->frame_->quit();
}

Exit Resident::run() {
    frame_->set_timer(tick_timer, std::chrono::seconds(1));
    frame_->set_timer(save_timer, std::chrono::seconds(app_.settings().number(setting::save_interval)));
    if (display_.interval.count() > 0) frame_->set_timer(display_timer, display_.interval);
    wake();
    frame_->run();
    const bool saved = close();
    const Exit status = app_.stop().requested() ? Exit::interrupted : saved ? Exit::done : Exit::failed;
    return leave(connections_.resolver, status, [this] {
        watch_.reset();
        frame_.reset();  // its answers are sent
    });
}

}  // namespace vantlow
