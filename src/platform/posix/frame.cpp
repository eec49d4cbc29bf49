#include "platform/frame.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "base/text.h"
#include "platform/deadline.h"
#include "platform/fault_hook.h"
#include "platform/posix/local_socket.h"
#include "platform/posix/runtime_folder.h"
#include "platform/stop.h"
#include "platform/system_text.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t largest_message = 64U << 20U;
constexpr std::size_t largest_answer = 1U << 30U;
constexpr std::size_t listeners = 4;
constexpr std::chrono::milliseconds request_time{10000};
constexpr std::chrono::milliseconds answer_time{5000};

std::string socket_name(const std::u16string& name) {
    std::uint64_t hash = 14695981039346656037U;  // FNV-1a
    for (const char c : to_utf8(name)) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    std::string text;
    for (int i = 0; i < 16; ++i) text.push_back("0123456789abcdef"[(hash >> (4 * i)) & 15U]);
    return text + ".socket";
}

class SocketFrame final : public Frame {
  public:
    explicit SocketFrame(Events events) : events_(std::move(events)) {}
    ~SocketFrame() override;

    bool listen(const std::u16string& name, std::string& error);
    [[nodiscard]] std::string address() const override { return path_; }
    void set_timer(int id, std::chrono::milliseconds period) override;
    void post(std::function<void()> work) override;
    void run() override;
    void quit() noexcept override;

  private:
    struct Timer {
        std::chrono::milliseconds period;
        Clock::time_point next;
    };
    struct Request {
        std::string text;
        std::string answer;  // these two: guarded by mutex_
        bool answered = false;
    };
    void take_answer(Request& request, std::string answer);
    void serve() noexcept;
    void converse(int fd);
    bool ask(const std::shared_ptr<Request>& request);
    [[nodiscard]] std::optional<int> due_timer();
    [[nodiscard]] Clock::time_point next_timer() const;

    Events events_;
    std::string path_;
    Descriptor listener_;
    StopSource stop_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> work_;  // these three: guarded by mutex_
    bool quitting_ = false;
    bool closed_ = false;
    std::map<int, Timer> timers_;  // the frame's thread, like the next one
    std::shared_ptr<SocketFrame*> here_ = std::make_shared<SocketFrame*>(this);  // what late answers look for
    std::vector<std::thread> threads_;
};

SocketFrame::~SocketFrame() {
    here_.reset();
    {
        const std::lock_guard guard(mutex_);
        closed_ = true;
        work_.clear();
    }
    changed_.notify_all();
    stop_.request();
    for (std::thread& thread : threads_) thread.join();
    if (!path_.empty()) ::unlink(path_.c_str());
}

bool SocketFrame::listen(const std::u16string& name, std::string& error) {
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

void SocketFrame::set_timer(int id, std::chrono::milliseconds period) {
    timers_[id] = {period, Clock::now() + period};
}

void SocketFrame::post(std::function<void()> work) {
    {
        const std::lock_guard guard(mutex_);
        if (closed_) return;
        work_.push_back(std::move(work));
    }
    changed_.notify_all();
}

void SocketFrame::quit() noexcept {
    {
        const std::lock_guard guard(mutex_);
        quitting_ = true;
    }
    changed_.notify_all();
}

std::optional<int> SocketFrame::due_timer() {
    const auto now = Clock::now();
    for (auto& [id, timer] : timers_) {
        if (timer.next > now) continue;
        timer.next = now + timer.period;
        return id;
    }
    return std::nullopt;
}

Clock::time_point SocketFrame::next_timer() const {
    auto next = Clock::now() + std::chrono::hours(1);
    for (const auto& [id, timer] : timers_) next = std::min(next, timer.next);
    return next;
}

void SocketFrame::run() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock guard(mutex_);
            changed_.wait_until(guard, next_timer(), [this] { return quitting_ || !work_.empty(); });
            if (quitting_) break;
            if (!work_.empty()) {
                work = std::move(work_.front());
                work_.pop_front();
            }
        }
        if (work) work();
        if (const auto timer = due_timer(); timer && events_.on_timer) events_.on_timer(*timer);
    }
    const std::lock_guard guard(mutex_);
    quitting_ = false;
}

void SocketFrame::take_answer(Request& request, std::string answer) {
    {
        const std::lock_guard guard(mutex_);
        request.answer = std::move(answer);
        request.answered = true;
    }
    changed_.notify_all();
}

// True when the frame's thread has answered.
bool SocketFrame::ask(const std::shared_ptr<Request>& request) {
    post([this, request] {
        events_.on_request(request->text,
                           [here = std::weak_ptr<SocketFrame*>(here_), request](std::string answer) {
                               if (const auto frame = here.lock())
                                   (*frame)->take_answer(*request, std::move(answer));
                           });
    });
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [&] { return closed_ || request->answered; });
    return request->answered;
}

void SocketFrame::converse(int fd) {
    const auto request = std::make_shared<Request>();
    if (!is_same_user(fd)) return;
    if (!receive_message(fd, request->text, largest_message, Deadline(request_time), &stop_)) return;
    if (ask(request)) send_message(fd, request->answer, Deadline(answer_time), nullptr);
}

void SocketFrame::serve() noexcept {
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

std::unique_ptr<Frame> Frame::open(const std::u16string& name, Role /*role*/, Events events,
                                   std::string& error) {
    auto frame = std::make_unique<SocketFrame>(std::move(events));
    if (!frame->listen(name, error)) return nullptr;
    return frame;
}

FrameAnswer ask_frame(const std::string& address, std::string_view request, const StopSource& stop) {
    using State = FrameAnswer::State;
    sockaddr_un where{};
    if (request.size() > largest_message || !make_address(address, where)) return {};
    const Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto* const to = reinterpret_cast<const sockaddr*>(&where);
    if (fd.get() < 0 || ask_hook(Operation::connect) != 0 || ::connect(fd.get(), to, sizeof where) != 0)
        return {};
    const Deadline forever(std::chrono::milliseconds(-1));
    if (!send_message(fd.get(), request, forever, &stop)) return {};
    FrameAnswer answer;
    const bool whole = receive_message(fd.get(), answer.answer, largest_answer, forever, &stop);
    answer.state = whole ? State::answered : State::lost;
    return answer;
}

void bring_to_front(const std::string& /*address*/) noexcept {}

}  // namespace vantlow
