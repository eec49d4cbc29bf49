#include "app/resident/resident.h"

#include "app/process/ending.h"
#include "app/process/hand_over.h"
#include "app/process/system_settings.h"
#include "base/text.h"
#include "platform/console.h"
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
    if (!command.global.set.empty())
        complain("--set and --rpc-... have no effect on the Vantlow that is running already.");
    app.settings().refresh();
    answer.status = command.run(app, command.global);
    return answer;
}

}  // namespace

Resident::~Resident() {
    control_.reset();
    engine_.end_running();
    watch_.reset();
    loop_.reset();
}

bool Resident::open(EventLoop::Role role, std::chrono::milliseconds question_time, bool gathers_log,
                    std::string& error) {
    EventLoop::Events events;
    events.on_timer = [this](int timer) { on_timer(timer); };
    events.on_request = [this](const std::string& request, const EventLoop::Events::Reply& reply) {
        on_request(request, reply);
    };
    events.on_session_end = [this] { close(); };
    loop_ = EventLoop::open(app_.data_folder(), role, std::move(events), error);
    if (!loop_) return false;
    using HangUp = InterruptWatch::HangUp;
    watch_.emplace(&on_interrupt, this,
                   role == EventLoop::Role::main ? HangUp::is_ignored : HangUp::interrupts);
    Engine::Running running{connections_, threads_, [this] { wake(); }, question_time, gathers_log};
    running.shares_finished = role == EventLoop::Role::main;
    engine_.run(std::move(running));
    if (role == EventLoop::Role::main) app_.session().publish(loop_->address());
    return publish(error);
}

// Where the folder is not this process's, one more attempt to claim it says why.
bool Resident::publish(std::string& error) {
    using Claim = DataFolderLock::Claim;
    FileError failure;
    DataFolderLock& lock = app_.folder_lock();
    const std::string folder = "The data folder " + to_utf8(app_.data_folder());
    const Claim claim = lock.is_mine() ? Claim::mine : lock.claim(app_.data_folder(), failure);
    if (claim == Claim::mine) failure = lock.publish(loop_->address());
    if (claim == Claim::taken) error = folder + " is in use by another Vantlow.";
    if (!failure.ok()) error = folder + " cannot be written: " + failure.text();
    return claim == Claim::mine && failure.ok();
}

void Resident::end_when_idle(Display display) {
    ends_when_idle_ = true;
    display_ = std::move(display);
}

void Resident::open_control() {
    control_ = std::make_unique<ControlApi>(
        ControlApi::Host{engine_, app_.settings(), app_.engine_options().agent,
                         [this](std::function<void()> work) { loop_->post(std::move(work)); },
                         [this] { wake(); }, [this] { loop_->quit(); },
                         [this](std::u16string_view section, std::u16string_view key) {
                             return vantlow::follow_setting(app_, section, key);
                         }});
    look_at_control();
}

void Resident::look_at_control() {
    if (!control_) return;
    if (const std::string complaint = control_->look(); !complaint.empty()) complain(complaint);
    app_.set_control_places(control_->places());
}

void Resident::be_hosted(std::function<void()> wake, void* window) {
    loop_->be_hosted({std::move(wake), window});
}

void Resident::follow_setting(std::u16string_view section, std::u16string_view key) {
    const FileError failed = vantlow::follow_setting(app_, section, key);
    if (!failed.ok()) complain(failed.text());
}

std::string Resident::run_command(const Words& words) {
    ConsoleCapture capture({});
    const CommandAnswer answer = run_words(app_, read_(words));
    return answer.status == Exit::done ? std::string() : answer.error + capture.error();
}

// A window shows what changed some times a second: more often than the loop's own timer comes.
bool Resident::turn() {
    const bool goes_on = loop_->turn();
    if (goes_on) engine_.pump();
    return goes_on;
}

// Any thread calls this. One message stands for all ends until the loop gets to it.
void Resident::wake() {
    if (woken_.exchange(true)) return;
    loop_->post([this] {
        woken_ = false;
        used_memory_ = true;
        engine_.pump();
        look_whether_idle();
    });
}

void Resident::look_whether_idle() {
    if (ends_when_idle_ && !engine_.has_work()) loop_->quit();
}

// Memory that jobs and answers held goes back to the system while nobody waits for it.
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
            look_at_control();
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

void Resident::on_request(const std::string& request, const EventLoop::Events::Reply& reply) {
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
    const Command command = read_(words->words);
    CommandAnswer answer;
    const std::uint64_t before = engine_.revision();
    if (command.run && command.place == Place::quit) {
        answer.status = close() ? Exit::done : Exit::failed;
        loop_->quit();
    } else {
        answer = run_words(app_, command);
        if (desktop_ != nullptr && command.shows_window) desktop_->come_to_front();
    }
    answer.output += capture.output();
    answer.error += capture.error();
    // A command that changed nothing is answered on a full disk too.
    if (closed_ || engine_.revision() == before) {
        reply(encode(answer));
        wake();
        return;
    }
    // An answer is true once its changes are safe.
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
    resident->loop_->quit();
}

Exit Resident::run() {
    loop_->set_timer(tick_timer, std::chrono::seconds(1));
    loop_->set_timer(save_timer, std::chrono::seconds(app_.settings().number(setting::save_interval)));
    if (display_.interval.count() > 0) loop_->set_timer(display_timer, display_.interval);
    wake();
    if (desktop_ != nullptr) {
        desktop_->run(*this);
        desktop_ = nullptr;  // requests still arrive while everything is saved
    } else {
        loop_->run();
    }
    control_.reset();
    const bool saved = close();
    const Exit status = app_.stop().requested() ? Exit::interrupted : saved ? Exit::done : Exit::failed;
    return leave(connections_.resolver, status, [this] {
        watch_.reset();
        loop_.reset();  // its answers are sent
    });
}

}  // namespace vantlow
