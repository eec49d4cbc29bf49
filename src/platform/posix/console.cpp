#include "platform/console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <thread>

#include "platform/fault_hook.h"
#include "platform/posix/native.h"
#include "platform/stop.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

constexpr int standard_width = 80;
constexpr int standard_height = 24;
constexpr int watched_signals[] = {SIGHUP, SIGINT, SIGTERM};
constexpr std::size_t hang_up_index = 0;

int descriptor_of(Stream stream) noexcept {
    return stream == Stream::output ? STDOUT_FILENO : STDERR_FILENO;
}

// The eventfd in which the signal handler counts, or -1.
std::atomic<int> signal_counter{-1};
static_assert(std::atomic<int>::is_always_lock_free);

void count_signal(int /*number*/) {
    const int error = errno;
    const std::uint64_t one = 1;
    const int counter = signal_counter.load();
    if (counter >= 0 && ::write(counter, &one, sizeof one) < 0) {
        // A signal handler can neither do nor report anything about a failure.
    }
    errno = error;
}

}  // namespace

bool is_terminal(Stream stream) noexcept {
    return ConsoleCapture::current() == nullptr && ::isatty(descriptor_of(stream)) == 1;
}

int terminal_width(Stream stream) noexcept {
    winsize size{};
    const bool told = ::ioctl(descriptor_of(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return told ? size.ws_col : standard_width;
}

int terminal_height(Stream stream) noexcept {
    winsize size{};
    const bool told = ::ioctl(descriptor_of(stream), TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
    return told ? size.ws_row : standard_height;
}

bool prepare_terminal(Stream stream) noexcept {
    if (!is_terminal(stream)) return false;
    const char* const kind = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): never set here
    return kind != nullptr && *kind != '\0' && std::string_view(kind) != "dumb";
}

std::optional<std::string> read_terminal_line(const StopSource& stop) {
    constexpr std::size_t longest_line = 4096;
    constexpr int step_ms = 100;  // where the system had no event for the stop
    if (::isatty(STDIN_FILENO) != 1) return std::nullopt;
    std::string line;
    while (line.size() < longest_line && !stop.requested()) {
        pollfd entries[2] = {{STDIN_FILENO, POLLIN, 0}, {static_cast<int>(stop.wake().native()), POLLIN, 0}};
        const int count = ::poll(entries, 2, step_ms);
        if (count < 0 && errno != EINTR) return std::nullopt;
        if (count <= 0 || entries[0].revents == 0) continue;
        char c = 0;
        const ssize_t got = ::read(STDIN_FILENO, &c, 1);
        if (got == 0) return std::nullopt;
        if (got < 0 && errno != EINTR && errno != EAGAIN) return std::nullopt;
        if (got == 1 && c == '\n') return line;
        if (got == 1) line += c;
    }
    return std::nullopt;
}

void prepare_streams() noexcept {
    std::signal(SIGPIPE, SIG_IGN);
    // They are opened the wrong way round, so that reads and writes go on failing.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) >= 0) continue;
        const int got = ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (got >= 0 && got != fd) ::close(got);  // cannot be: the lowest free number is taken
    }
}

int continue_streams_in(const std::u16string& path) {
    const int fd = ::open(NativePath(path).get(), O_WRONLY | O_CREAT | O_APPEND | O_NOCTTY | O_CLOEXEC, 0600);
    if (fd < 0) return errno;
    int error = 0;
    for (const Stream stream : {Stream::output, Stream::error}) {
        if (::dup2(fd, descriptor_of(stream)) < 0) error = errno;
    }
    ::close(fd);
    return error;
}

int write_to_system(Stream stream, std::string_view text) noexcept {
    const int fd = descriptor_of(stream);
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd entry{fd, POLLOUT, 0};  // somebody made the stream non-blocking
            ::poll(&entry, 1, -1);
        } else if (count == 0 || errno != EINTR) {
            return count == 0 ? EIO : errno;
        }
    }
    return 0;
}

std::size_t read_input(std::span<char> into) noexcept {
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, into.data(), into.size());
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd entry{STDIN_FILENO, POLLIN, 0};  // somebody made the stream non-blocking
            ::poll(&entry, 1, -1);
        } else if (errno != EINTR) {
            return 0;
        }
    }
}

std::string read_standard_input(std::size_t at_most) {
    if (ConsoleCapture* const capture = ConsoleCapture::current()) return capture->take_input();
    std::string text;
    char piece[65536];
    while (text.size() < at_most) {
        const std::size_t count =
            read_input(std::span(piece).first(std::min(sizeof piece, at_most - text.size())));
        if (count == 0) break;
        text.append(piece, count);
    }
    return text;
}

struct InterruptWatch::State {
    State(Handler on_interrupt, void* its_context) : handler(on_interrupt), context(its_context) {}
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State();

    bool begin(HangUp hang_up);
    void run() noexcept;

    Handler handler;
    void* context;
    int counter = -1;
    struct sigaction before[std::size(watched_signals)] = {};
    bool watching = false;
    WakeEvent end;
    std::thread thread;
};

InterruptWatch::State::~State() {
    if (watching) {
        for (std::size_t i = 0; i < std::size(watched_signals); ++i) {
            ::sigaction(watched_signals[i], &before[i], nullptr);
        }
        signal_counter.store(-1);
    }
    end.set();
    if (thread.joinable()) thread.join();
    if (counter >= 0) ::close(counter);
}

bool InterruptWatch::State::begin(HangUp hang_up) {
    if (ask_hook(Operation::make_event) == 0) counter = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (counter < 0 || end.native() < 0) return false;
    if (!start_thread(thread, [this] { run(); }).ok()) return false;
    signal_counter.store(counter);
    struct sigaction action {};
    action.sa_handler = &count_signal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < std::size(watched_signals); ++i) {
        ::sigaction(watched_signals[i], &action, &before[i]);
    }
    // Under nohup any program is meant to outlive its terminal.
    const bool nohup = before[hang_up_index].sa_handler == SIG_IGN;
    if (nohup || hang_up == HangUp::is_ignored) {
        action.sa_handler = SIG_IGN;
        ::sigaction(SIGHUP, &action, nullptr);
    }
    watching = true;
    return true;
}

void InterruptWatch::State::run() noexcept {
    int count = 0;
    for (;;) {
        pollfd entries[] = {{counter, POLLIN, 0}, {static_cast<int>(end.native()), POLLIN, 0}};
        if (::poll(entries, std::size(entries), -1) < 0) continue;
        if (entries[1].revents != 0) return;
        std::uint64_t fresh = 0;
        if (::read(counter, &fresh, sizeof fresh) != sizeof fresh) continue;
        for (; fresh > 0; --fresh) handler(context, ++count);
    }
}

InterruptWatch::InterruptWatch(Handler handler, void* context, HangUp hang_up) : state_(nullptr) {
    auto state = std::make_unique<State>(handler, context);
    // Without a watch the signals go on ending the process.
    if (state->begin(hang_up)) state_ = state.release();
}

InterruptWatch::~InterruptWatch() {
    delete state_;
}

}  // namespace vantlow
