#include "platform/event_loop.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/local_text.h"
#include "platform/posix/local_socket.h"
#include "platform/posix/native.h"
#include "platform/process.h"
#include "platform/stop.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t largest_message = 64U << 20U;
constexpr std::size_t largest_answer = 1U << 30U;
constexpr std::size_t listeners = 8;
constexpr std::chrono::milliseconds request_time{10000};
constexpr std::chrono::milliseconds answer_time{5000};
// A process that lives and is busy with something else is waited for this long.
constexpr std::chrono::milliseconds busy_time{60000};
// A conversation has five parts: the request; "here", from a thread that is always free; "ready", as soon as
// the loop's thread has come round; "go", since the asking process may have given up; the answer.
constexpr std::string_view here_mark = "here";
constexpr std::string_view ready_mark = "ready";
constexpr std::string_view go_mark = "go";

std::string socket_name(const std::u16string& name) {
    std::uint64_t hash = 14695981039346656037U;  // FNV-1a
    for (const char c : to_utf8(name)) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    std::string text;
    for (int i = 0; i < 16; ++i) text.push_back("0123456789abcdef"[(hash >> (4 * i)) & 15U]);
    return text + ".socket";
}

class SocketLoop final : public EventLoop {
  public:
    explicit SocketLoop(Events events) : events_(std::move(events)) {}
    ~SocketLoop() override;

    bool listen(const std::u16string& name, std::string& error);
    [[nodiscard]] std::string address() const override { return path_; }
    void set_timer(int id, std::chrono::milliseconds period) override;
    void post(std::function<void()> work) override;
    void run() override;
    void quit() noexcept override;
    void be_hosted(Host host) override;
    bool turn() override;

  private:
    struct Timer {
        std::chrono::milliseconds period;
        Clock::time_point next;
    };
    struct Turn {
        std::string answer;  // these two: guarded by the mutex_ of the loop
        bool ended = false;
    };
    void end_turn(Turn& turn, std::string answer);
    void serve() noexcept;
    void converse(int fd);
    bool run_in_turn(const std::function<void(const Events::Reply&)>& work, std::string& answer);
    [[nodiscard]] std::optional<int> due_timer();
    [[nodiscard]] Clock::time_point next_timer() const;
    std::function<void()> notify() VANTLOW_REQUIRES(mutex_);

    Events events_;
    std::string path_;
    Descriptor listener_;
    StopSource stop_;
    Mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<std::function<void()>> work_ VANTLOW_GUARDED_BY(mutex_);
    bool quitting_ VANTLOW_GUARDED_BY(mutex_) = false;
    bool closed_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::function<void()> wake_host_ VANTLOW_GUARDED_BY(mutex_);
    std::map<int, Timer> timers_;  // the loop's thread, like the next one
    std::shared_ptr<SocketLoop*> here_ = std::make_shared<SocketLoop*>(this);  // what late answers look for
    std::vector<std::thread> threads_;
};

SocketLoop::~SocketLoop() {
    here_.reset();
    {
        const MutexLock guard(mutex_);
        closed_ = true;
        work_.clear();
    }
    changed_.notify_all();
    stop_.request();
    for (std::thread& thread : threads_) thread.join();
    if (!path_.empty()) ::unlink(path_.c_str());
}

bool SocketLoop::listen(const std::u16string& name, std::string& error) {
    const std::string folder = runtime_folder(error);
    if (folder.empty()) return false;
    const std::string path = folder + "/" + socket_name(name);
    sockaddr_un address{};
    ::unlink(path.c_str());  // of an owner that was killed: there is one owner at a time
    errno = ask_hook(Operation::listen);
    if (errno == 0) listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool listening =
        listener_.get() >= 0 && make_address(path, address) &&
        ::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::listen(listener_.get(), SOMAXCONN) == 0;
    if (!listening) {
        error = path + ": " + system_text(errno);
        return false;
    }
    path_ = path;
    Result started;
    while (threads_.size() < listeners && started.ok()) {
        std::thread thread;
        started = start_thread(thread, [this] { serve(); });
        if (started.ok()) threads_.push_back(std::move(thread));
    }
    // One is enough to hear others.
    if (threads_.empty()) error = path + ": " + started.message();
    return !threads_.empty();
}

void SocketLoop::set_timer(int id, std::chrono::milliseconds period) {
    timers_[id] = {period, Clock::now() + period};
}

void SocketLoop::post(std::function<void()> work) {
    std::function<void()> wake;
    {
        const MutexLock guard(mutex_);
        if (closed_) return;
        work_.push_back(std::move(work));
        wake = notify();
    }
    if (wake) wake();
}

void SocketLoop::quit() noexcept {
    std::function<void()> wake;
    {
        const MutexLock guard(mutex_);
        quitting_ = true;
        wake = notify();
    }
    if (wake) wake();
}

// Under the lock: behind it the loop may have ended, and be gone. Gives the call that wakes a host.
std::function<void()> SocketLoop::notify() {
    changed_.notify_all();
    return wake_host_;
}

void SocketLoop::be_hosted(Host host) {
    std::function<void()> wake;
    {
        const MutexLock guard(mutex_);
        wake_host_ = std::move(host.wake);
        wake = notify();
    }
    if (wake) wake();  // for what was posted before
}

// Of the work that this pass finds, not of what is posted meanwhile: the host has events of its own.
bool SocketLoop::turn() {
    std::size_t most = 0;
    {
        const MutexLock guard(mutex_);
        most = work_.size();
    }
    for (; most > 0; --most) {
        std::function<void()> work;
        {
            const MutexLock guard(mutex_);
            if (quitting_) return false;
            if (work_.empty()) break;
            work = std::move(work_.front());
            work_.pop_front();
        }
        work();
    }
    if (const auto timer = due_timer(); timer && events_.on_timer) events_.on_timer(*timer);
    const MutexLock guard(mutex_);
    return !quitting_;
}

std::optional<int> SocketLoop::due_timer() {
    const auto now = Clock::now();
    for (auto& [id, timer] : timers_) {
        if (timer.next > now) continue;
        timer.next = now + timer.period;
        return id;
    }
    return std::nullopt;
}

Clock::time_point SocketLoop::next_timer() const {
    auto next = Clock::now() + std::chrono::hours(1);
    for (const auto& [id, timer] : timers_) next = std::min(next, timer.next);
    return next;
}

void SocketLoop::run() {
    for (;;) {
        std::function<void()> work;
        {
            MutexLock guard(mutex_);
            changed_.wait_until(guard, next_timer(),
                                [this]() VANTLOW_REQUIRES(mutex_) { return quitting_ || !work_.empty(); });
            if (quitting_) break;
            if (!work_.empty()) {
                work = std::move(work_.front());
                work_.pop_front();
            }
        }
        if (work) work();
        if (const auto timer = due_timer(); timer && events_.on_timer) events_.on_timer(*timer);
    }
    const MutexLock guard(mutex_);
    quitting_ = false;
}

void SocketLoop::end_turn(Turn& turn, std::string answer) {
    {
        const MutexLock guard(mutex_);
        turn.answer = std::move(answer);
        turn.ended = true;
    }
    changed_.notify_all();
}

// Has the loop's thread do the work. True once the work has answered, false when the loop ends instead.
bool SocketLoop::run_in_turn(const std::function<void(const Events::Reply&)>& work, std::string& answer) {
    const auto turn = std::make_shared<Turn>();
    post([this, &work, turn] {
        work([here = std::weak_ptr<SocketLoop*>(here_), turn](std::string text) {
            if (const auto loop = here.lock()) (*loop)->end_turn(*turn, std::move(text));
        });
    });
    MutexLock guard(mutex_);
    changed_.wait(guard, [&]() VANTLOW_REQUIRES(mutex_) { return closed_ || turn->ended; });
    answer = std::move(turn->answer);
    return turn->ended;
}

void SocketLoop::converse(int fd) {
    std::string request;
    std::string answer;
    std::string go;
    if (!is_same_user(fd)) return;
    if (!receive_message(fd, request, largest_message, Deadline(request_time), &stop_)) return;
    if (!send_message(fd, here_mark, Deadline(answer_time), &stop_)) return;
    if (!run_in_turn([](const auto& reply) { reply({}); }, answer) ||
        !send_message(fd, ready_mark, Deadline(answer_time), &stop_))
        return;
    if (!receive_message(fd, go, go_mark.size(), Deadline(request_time), &stop_) || go != go_mark) return;
    if (run_in_turn([&](const auto& reply) { events_.on_request(request, reply); }, answer))
        send_message(fd, answer, Deadline(answer_time), nullptr);
}

void SocketLoop::serve() noexcept {
    while (wait_for(listener_.get(), POLLIN, Deadline(std::chrono::milliseconds(-1)), &stop_)) {
        errno = ask_hook(Operation::accept);
        const Descriptor peer(errno != 0 ? -1 : ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (peer.get() >= 0) {
            try {
                converse(peer.get());
            } catch (const std::exception&) {
                // no memory for this request: its sender sees the end of the connection
            }
        } else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {  // no descriptor, no memory
            stop_.wait_for(std::chrono::milliseconds(100));
        }
    }
}

}  // namespace

std::unique_ptr<EventLoop> EventLoop::open(const std::u16string& name, Role /*role*/, Events events,
                                           std::string& error) {
    auto loop = std::make_unique<SocketLoop>(std::move(events));
    if (!loop->listen(name, error)) return nullptr;
    return loop;
}

namespace {

// Waits for the mark and takes it. Without it: not_there when the other side went away.
ProcessAnswer::State take_mark(int fd, std::string_view mark, const Deadline& deadline,
                               const StopSource& stop) {
    using State = ProcessAnswer::State;
    std::string got;
    if (!wait_for(fd, POLLIN, deadline, &stop)) return State::not_taken;
    if (!receive_message(fd, got, mark.size(), Deadline(request_time), &stop)) return State::not_there;
    return got == mark ? State::answered : State::not_there;
}

// Waits until the loop waits for the "go". A connection that is given up before that is never answered.
ProcessAnswer::State hand_in(int fd, std::string_view request, const StopSource& stop,
                             const std::function<void()>& on_busy) {
    using State = ProcessAnswer::State;
    const Deadline patience(silence_patience);
    if (!send_message(fd, request, patience, &stop))
        return patience.left() == 0 ? State::not_taken : State::not_there;
    State state = take_mark(fd, here_mark, patience, stop);
    if (state != State::answered) return state;
    state = take_mark(fd, ready_mark, patience, stop);
    if (state != State::not_taken || stop.requested()) return state;
    on_busy();
    return take_mark(fd, ready_mark, Deadline(busy_time), stop);
}

}  // namespace

ProcessAnswer ask_process(const std::string& address, std::string_view request, const StopSource& stop,
                          const std::function<void(std::int64_t process)>& on_busy) {
    using State = ProcessAnswer::State;
    sockaddr_un where{};
    if (request.size() > largest_message || !make_address(address, where)) return {};
    const Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto* const to = reinterpret_cast<const sockaddr*>(&where);
    if (fd.get() < 0 || ask_hook(Operation::connect) != 0 || ::connect(fd.get(), to, sizeof where) != 0)
        return {};
    ProcessAnswer answer;
    answer.process = other_process(fd.get());
    answer.state = hand_in(fd.get(), request, stop, [&] {
        if (on_busy) on_busy(answer.process);
    });
    if (answer.state != State::answered) return answer;
    const Deadline forever(std::chrono::milliseconds(-1));
    const bool whole = send_message(fd.get(), go_mark, forever, &stop) &&
                       receive_message(fd.get(), answer.answer, largest_answer, forever, &stop);
    answer.state = whole ? State::answered : State::lost;
    return answer;
}

void bring_to_front(const std::string& /*address*/) noexcept {}

bool has_display() noexcept {
    try {
        const auto is_set = [](std::string_view name) { return !environment(name).value_or(u"").empty(); };
        return is_set("DISPLAY") || is_set("WAYLAND_DISPLAY");
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace vantlow
