#include "app/resident.h"

#include "app/command_line.h"
#include "app/hand_over.h"
#include "app/store_command.h"
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
    if (!command.global.set.empty()) complain("--set does not reach the instance that runs already.");
    app.settings().refresh();
    answer.status = command.run(app, command.global);
    return answer;
}

}  // namespace

Resident::~Resident() {
    app_.set_runner(nullptr);
    runner_.reset();
    frame_.reset();
}

bool Resident::open(JobStore& store, Frame::Role role, JobRunner::Events events, std::string& error) {
    Frame::Events frame;
    frame.on_timer = [this](int timer) { on_timer(timer); };
    frame.on_request = [this](const std::string& request, const Frame::Events::Reply& reply) {
        on_request(request, reply);
    };
    frame.on_session_end = [this] { close(); };
    frame_ = Frame::open(app_.data_folder(), role, std::move(frame), error);
    if (!frame_) return false;
    events.wake = [this] { wake(); };
    runner_ = std::make_unique<JobRunner>(app_, store, connections_, threads_, std::move(events));
    app_.set_runner(runner_.get());
    if (role == Frame::Role::main) app_.session().publish(frame_->address());
    const FileError published = app_.folder_lock().publish(frame_->address());
    if (!published.ok())
        error = "The data folder " + to_utf8(app_.data_folder()) + " cannot be written: " + published.text();
    return published.ok();
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
        runner_->pump();
        look_whether_idle();
    });
}

void Resident::look_whether_idle() {
    if (ends_when_idle_ && !runner_->has_work()) frame_->quit();
}

// What jobs and answers held goes back to the system while nobody waits for it.
void Resident::look_at_memory() {
    used_memory_ = used_memory_ || runner_->running() > 0;
    const Clock::time_point now = Clock::now();
    if (!used_memory_ || now < next_give_back_) return;
    used_memory_ = false;
    next_give_back_ = now + give_back_interval;
    give_back_memory();
}

void Resident::on_timer(int timer) {
    switch (timer) {
        case tick_timer:
            runner_->tick();
            runner_->pump();
            look_whether_idle();
            look_at_memory();
            break;
        case save_timer:
            runner_->save();
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
        reply(encode(CommandAnswer{Exit::usage, {}, "vantlow: not understood.\n"}));
        return;
    }
    ConsoleCapture capture(words->input);
    const CurrentFolder folder(to_utf16(words->folder));
    const Command command = parse_command_line(words->words);
    CommandAnswer answer;
    if (command.run && command.place == Place::quit) {
        answer.status = close() ? Exit::done : Exit::failed;
        frame_->quit();
    } else {
        answer = run_words(app_, command);
    }
    answer.output += capture.output();
    answer.error += capture.error();
    if (closed_) {
        reply(encode(answer));
        return;
    }
    // What a command says is true once it is safe.
    runner_->settle([this, reply, answer = std::move(answer)](const std::string& failure) mutable {
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
    saved_ = runner_->close(error);
    if (!saved_) complain(error);
    return saved_;
}

void Resident::on_interrupt(void* context, int count) {
    auto* const resident = static_cast<Resident*>(context);
    stop_at_interrupt(&resident->app_.stop(), count);
    resident->frame_->quit();
}

Exit Resident::run() {
    const InterruptWatch watch(&on_interrupt, this);
    frame_->set_timer(tick_timer, std::chrono::seconds(1));
    frame_->set_timer(save_timer, std::chrono::seconds(app_.settings().number(setting::save_interval)));
    if (display_.interval.count() > 0) frame_->set_timer(display_timer, display_.interval);
    wake();
    frame_->run();
    const bool saved = close();
    const Exit status = app_.stop().requested() ? Exit::interrupted : saved ? Exit::done : Exit::failed;
    return leave(connections_.resolver, status, [this] { frame_.reset(); });  // its answers are sent
}

}  // namespace vantlow
