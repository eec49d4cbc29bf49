// Programs that tests run: the program itself above all.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace vantlow::test {

struct RunOptions {
    std::u16string folder{};  ///< the working folder; empty: the test's own
    std::vector<std::pair<std::string, std::u16string>> environment{};  ///< added to the test's own
    std::string input{};  ///< what the program reads from its standard input, which ends behind it
    std::chrono::milliseconds at_most{60000};  ///< of run_program: the program is killed then
};

struct RunResult {
    int status = -1;  ///< exit status; 128 and the signal's number where one ended it
    bool timed_out = false;
    std::string out;
    std::string err;
};

/// What a system does to a running program. One implementation each.
class ProcessBackend {
  public:
    ProcessBackend() = default;
    ProcessBackend(const ProcessBackend&) = delete;
    ProcessBackend& operator=(const ProcessBackend&) = delete;
    virtual ~ProcessBackend() = default;

    /// Starts it; throws std::runtime_error when it cannot be started.
    static std::unique_ptr<ProcessBackend> start(const std::u16string& program,
                                                 const std::vector<std::u16string>& arguments,
                                                 const RunOptions& options);
    /// Blocking: the next bytes of the program's stdout (0) or stderr (1); empty at its end.
    virtual std::string read(int stream) = 0;
    /// Blocking: writes the input and closes it.
    virtual void write_input(std::string_view input) = 0;
    /// The exit status, once it has ended within the time.
    virtual std::optional<int> wait(std::chrono::milliseconds at_most) = 0;
    virtual void kill() = 0;
    virtual void terminate() = 0;
    virtual bool interrupt() = 0;
    [[nodiscard]] virtual std::int64_t id() const = 0;
};

/// Starts a program that is named by its Unix path. Windows only: elsewhere that is what every path is.
std::unique_ptr<ProcessBackend> start_unix_program(const std::u16string& program,
                                                   const std::vector<std::u16string>& arguments,
                                                   const RunOptions& options);

/// A program that runs beside the test; one with a Unix path also below Wine (unix_program.h). Killed and
/// waited for when the object ends.
class RunningProgram {
  public:
    RunningProgram(const std::u16string& program, const std::vector<std::u16string>& arguments,
                   const RunOptions& options = {});
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /// At once, without a chance to do anything (SIGKILL, TerminateProcess).
    void kill() { backend_->kill(); }
    /// A friendly end (SIGTERM; where there is no such thing like kill()).
    void terminate() { backend_->terminate(); }
    /// Ctrl-C, or Ctrl-Break where Ctrl-C cannot be sent to one program.
    /// False where it cannot be sent: Wine has no console without a terminal.
    bool interrupt() { return backend_->interrupt(); }
    [[nodiscard]] std::int64_t id() const { return backend_->id(); }
    [[nodiscard]] bool is_running() { return !backend_->wait(std::chrono::milliseconds(0)).has_value(); }

    /// What it wrote so far.
    [[nodiscard]] std::string out() const { return text(0); }
    [[nodiscard]] std::string err() const { return text(1); }
    /// True as soon as its stdout or its stderr holds the text.
    bool wait_for_output(std::string_view text,
                         std::chrono::milliseconds at_most = std::chrono::seconds(20)) const;
    /// Waits for its end; where that does not come in time it is killed.
    RunResult wait(std::chrono::milliseconds at_most = std::chrono::seconds(60));

  private:
    struct Output {
        std::string text;  ///< guarded by mutex_
        std::thread reader;
    };
    [[nodiscard]] std::string text(int stream) const;
    void collect(int stream);
    void join();

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::unique_ptr<ProcessBackend> backend_;
    Output outputs_[2];
    std::thread writer_;
};

/// Runs a program to its end.
RunResult run_program(const std::u16string& program, const std::vector<std::u16string>& arguments,
                      const RunOptions& options = {});

/// The program under test: the environment's VANTLOW_PROGRAM, else the one that the build named.
std::u16string vantlow_program();
/// Runs it to its end.
RunResult run_vantlow(const std::vector<std::u16string>& arguments, const RunOptions& options = {});

}  // namespace vantlow::test
