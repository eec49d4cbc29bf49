#include "platform/frame.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "base/text.h"
#include "platform/deadline.h"
#include "platform/fault_hook.h"
#include "platform/file.h"
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
// How often a stop is looked for where the system had no event for it.
constexpr int blind_step_ms = 20;
constexpr std::chrono::milliseconds request_time{10000};
constexpr std::chrono::milliseconds answer_time{5000};

/// A descriptor that is closed at the end.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    void reset(int fd) noexcept {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }
    [[nodiscard]] int get() const noexcept { return fd_; }

  private:
    int fd_;
};

bool make_address(const std::string& path, sockaddr_un& address) noexcept {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

// Waits for the descriptor, the end of the time or a stop; false for the last two.
bool wait_for(int fd, short events, const Deadline& deadline, const StopSource* stop) noexcept {
    const bool blind = stop != nullptr && stop->wake().native() < 0;
    for (;;) {
        pollfd entries[] = {{fd, events, 0},
                            {stop != nullptr ? static_cast<int>(stop->wake().native()) : -1, POLLIN, 0}};
        const int left = deadline.left();
        const bool step = blind && (left < 0 || left > blind_step_ms);
        const int count = ::poll(entries, 2, step ? blind_step_ms : left);
        if (stop != nullptr && stop->requested()) return false;
        if ((count < 0 && errno == EINTR) || (count == 0 && step)) continue;
        return count > 0;
    }
}

bool send_all(int fd, std::string_view bytes, const Deadline& deadline, const StopSource* stop) noexcept {
    while (!bytes.empty()) {
        if (ask_hook(Operation::send) != 0) return false;
        const ssize_t count = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!wait_for(fd, POLLOUT, deadline, stop)) return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool receive_all(int fd, char* into, std::size_t size, const Deadline& deadline,
                 const StopSource* stop) noexcept {
    while (size > 0) {
        if (ask_hook(Operation::receive) != 0) return false;
        const ssize_t count = ::recv(fd, into, size, MSG_DONTWAIT);
        if (count > 0) {
            into += count;
            size -= static_cast<std::size_t>(count);
        } else if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!wait_for(fd, POLLIN, deadline, stop)) return false;
        } else if (count == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// A message is its length, 4 bytes in the order of this machine, and its bytes.
bool send_message(int fd, std::string_view message, const Deadline& deadline,
                  const StopSource* stop) noexcept {
    const auto length = static_cast<std::uint32_t>(message.size());
    char head[sizeof length];
    std::memcpy(head, &length, sizeof length);
    return send_all(fd, {head, sizeof head}, deadline, stop) && send_all(fd, message, deadline, stop);
}

bool receive_message(int fd, std::string& message, std::size_t at_most, const Deadline& deadline,
                     const StopSource* stop) {
    std::uint32_t length = 0;
    char head[sizeof length];
    if (!receive_all(fd, head, sizeof head, deadline, stop)) return false;
    std::memcpy(&length, head, sizeof length);
    if (length > at_most) return false;
    message.clear();
    // Memory comes with the bytes, not with the promise of them.
    constexpr std::size_t step = 1U << 20U;
    while (message.size() < length) {
        const std::size_t before = message.size();
        message.resize(std::min<std::size_t>(length, before + step));
        if (!receive_all(fd, message.data() + before, message.size() - before, deadline, stop)) return false;
    }
    return true;
}

bool is_same_user(int fd) noexcept {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

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
        std::string answer;
        bool answered = false;  // guarded by mutex_
    };
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
    std::map<int, Timer> timers_;  // the frame's thread
    std::vector<std::thread> threads_;
};

SocketFrame::~SocketFrame() {
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

// True when the frame's thread has answered.
bool SocketFrame::ask(const std::shared_ptr<Request>& request) {
    post([this, request] {
        std::string answer = events_.on_request(request->text);
        {
            const std::lock_guard guard(mutex_);
            request->answer = std::move(answer);
            request->answered = true;
        }
        changed_.notify_all();
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
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) {
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

struct SessionClaim::State {
    File file;
};

namespace {

std::u16string session_path() {
    std::string error;
    const std::string folder = runtime_folder(error);
    return folder.empty() ? std::u16string() : to_utf16(folder + "/instance");
}

}  // namespace

SessionClaim::SessionClaim() : state_(std::make_unique<State>()) {}

SessionClaim::~SessionClaim() {
    if (state_->file.is_open()) static_cast<void>(state_->file.resize(0));
}

bool SessionClaim::claim() {
    const std::u16string path = session_path();
    // Where the session has no folder of its own nobody can be found, so this one is the first.
    if (path.empty() || !state_->file.open(path, OpenMode::write, Privacy::owner_only).ok()) return true;
    if (state_->file.try_lock()) {
        static_cast<void>(state_->file.resize(0));
        return true;
    }
    state_->file.close();
    return false;
}

void SessionClaim::publish(const std::string& address) {
    if (!state_->file.is_open()) return;
    static_cast<void>(state_->file.write_at(0, std::as_bytes(std::span(address))));
}

std::string SessionClaim::find() {
    std::vector<std::byte> bytes;
    const std::u16string path = session_path();
    if (path.empty() || !read_file(path, 4096, bytes).ok()) return {};
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace vantlow
