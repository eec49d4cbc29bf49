#include "support/process_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "base/text.h"

extern char** environ;

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

/// Both ends of a pipe, closed in children.
struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() {
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    }
    ~Pipe() {
        close(0);
        close(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void close(int end) {
        if (ends[end] >= 0) ::close(ends[end]);
        ends[end] = -1;
    }
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> made;
    made.reserve(texts.size() + 1);
    for (std::string& text : texts) made.push_back(text.data());
    made.push_back(nullptr);
    return made;
}

std::vector<std::string> environment_texts(const RunOptions& options) {
    std::vector<std::string> texts;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        bool replaced = false;
        for (const auto& [name, value] : options.environment) {
            replaced = replaced || text.substr(0, text.find('=')) == name;
        }
        if (!replaced) texts.emplace_back(text);
    }
    for (const auto& [name, value] : options.environment) texts.push_back(name + "=" + to_utf8(value));
    return texts;
}

class PosixProcess : public ProcessBackend {
  public:
    PosixProcess(const std::u16string& program, const std::vector<std::u16string>& arguments,
                 const RunOptions& options) {
        const std::string path = to_utf8(program);
        const std::string folder = to_utf8(options.folder);
        std::vector<std::string> words{path};
        for (const std::u16string& argument : arguments) words.push_back(to_utf8(argument));
        auto variables = environment_texts(options);
        const auto argv = pointers(words);
        const auto envp = pointers(variables);
        const pid_t parent = ::getpid();
        pid_ = ::fork();
        if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (pid_ == 0) become(path, folder, argv, envp, parent);
        input_.close(0);
        for (Pipe& output : outputs_) output.close(1);
        report_.close(1);
        int error = 0;
        if (::read(report_.ends[0], &error, sizeof error) == sizeof error) {
            ::waitpid(pid_, nullptr, 0);
            throw std::system_error(error, std::generic_category(), path);
        }
    }
    ~PosixProcess() override {
        if (status_) return;
        kill();
        wait(std::chrono::seconds(10));
    }

    std::string read(int stream) override {
        std::array<char, 65536> buffer;
        for (;;) {
            const ssize_t count = ::read(outputs_[stream].ends[0], buffer.data(), buffer.size());
            if (count > 0) return {buffer.data(), static_cast<std::size_t>(count)};
            if (count == 0 || errno != EINTR) return {};
        }
    }

    void write_input(std::string_view input) override {
        ::signal(SIGPIPE, SIG_IGN);
        while (!input.empty()) {
            const ssize_t count = ::write(input_.ends[1], input.data(), input.size());
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) break;  // the program does not read it all
            input.remove_prefix(static_cast<std::size_t>(count));
        }
        input_.close(1);
    }

    std::optional<int> wait(milliseconds at_most) override {
        const auto end = std::chrono::steady_clock::now() + at_most;
        for (;;) {
            {
                const std::lock_guard guard(mutex_);
                if (status_) return status_;
                int status = 0;
                if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
                    return status_;
                }
            }
            if (std::chrono::steady_clock::now() >= end) return std::nullopt;
            std::this_thread::sleep_for(milliseconds(2));
        }
    }

    void kill() override { send(SIGKILL); }
    void terminate() override { send(SIGTERM); }
    bool interrupt() override {
        send(SIGINT);
        return true;
    }
    [[nodiscard]] std::int64_t id() const override { return pid_; }

  private:
    // In the child: only calls that are safe between fork and exec.
    [[noreturn]] void become(const std::string& path, const std::string& folder,
                             const std::vector<char*>& argv, const std::vector<char*>& envp, pid_t parent) {
        // It does not outlive a test program that dies.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) ::_exit(127);
        // A group of its own: a Ctrl-C at the terminal of the tests is not its business.
        ::setpgid(0, 0);
        ::signal(SIGPIPE, SIG_DFL);
        ::signal(SIGINT, SIG_DFL);
        ::dup2(input_.ends[0], 0);
        ::dup2(outputs_[0].ends[1], 1);
        ::dup2(outputs_[1].ends[1], 2);
        if (folder.empty() || ::chdir(folder.c_str()) == 0) ::execve(path.c_str(), argv.data(), envp.data());
        const int error = errno;
        (void)!::write(report_.ends[1], &error, sizeof error);
        ::_exit(127);
    }

    void send(int signal) {
        const std::lock_guard guard(mutex_);
        if (!status_) ::kill(pid_, signal);
    }

    Pipe input_;
    Pipe outputs_[2];
    Pipe report_;  ///< the error of a start that failed
    pid_t pid_ = -1;
    std::mutex mutex_;
    std::optional<int> status_;  ///< guarded by mutex_: once set, the id may be somebody else's
};

}  // namespace

std::unique_ptr<ProcessBackend> ProcessBackend::start(const std::u16string& program,
                                                      const std::vector<std::u16string>& arguments,
                                                      const RunOptions& options) {
    return std::make_unique<PosixProcess>(program, arguments, options);
}

}  // namespace vantlow::test
