#include "platform/background_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/local_text.h"
#include "platform/posix/native.h"

extern char** environ;

namespace vantlow {
namespace {

class SpawnedProcess final : public BackgroundProcess {
  public:
    explicit SpawnedProcess(pid_t id) noexcept : id_(id) {}

    [[nodiscard]] std::int64_t id() const noexcept override { return id_; }
    [[nodiscard]] std::optional<int> ended() noexcept override {
        int status = 0;
        if (!status_ && ::waitpid(id_, &status, WNOHANG) == id_)
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return status_;
    }

  private:
    pid_t id_;
    std::optional<int> status_;
};

/// The steps that the system takes between the two programs.
class Preparation {
  public:
    explicit Preparation(const char* output) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        const int out_flags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NOCTTY;
        ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, output, out_flags, 0600);
        ::posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO);
        // An inherited pipe would keep its reader waiting until the new program ends.
        ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        sigset_t signals;
        sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        // A session of its own, which no terminal controls.
        ::posix_spawnattr_setflags(&attributes_,
                                   POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Preparation() {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&actions_);
    }
    Preparation(const Preparation&) = delete;
    Preparation& operator=(const Preparation&) = delete;

    [[nodiscard]] const posix_spawn_file_actions_t* actions() const noexcept { return &actions_; }
    [[nodiscard]] const posix_spawnattr_t* attributes() const noexcept { return &attributes_; }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

}  // namespace

std::unique_ptr<BackgroundProcess> BackgroundProcess::start(const std::u16string& program,
                                                            const std::vector<std::string>& words,
                                                            const std::u16string& output,
                                                            std::string& error) {
    const NativePath path(program);
    const NativePath file(output);
    std::vector<std::string> texts{path.get()};
    texts.insert(texts.end(), words.begin(), words.end());
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    const Preparation preparation(file.get());
    pid_t id = -1;
    int failure = ask_hook(Operation::start_process, program);
    if (failure == 0)
        failure = ::posix_spawn(&id, path.get(), preparation.actions(), preparation.attributes(),
                                pointers.data(), environ);
    if (failure != 0) {
        error = to_utf8(program) + " cannot be started with its output in " + to_utf8(output) + ": " +
                system_text(failure);
        return nullptr;
    }
    return std::make_unique<SpawnedProcess>(id);
}

}  // namespace vantlow
