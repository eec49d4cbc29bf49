// A program that is started to stay when this one has ended.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vantlow {

/// A program that outlives this process and its terminal: it has no terminal, nothing to read, and writes
/// into a file. One thread at a time may use the object; its end leaves the program running.
class BackgroundProcess {
  public:
    /// Starts a program (a full path) with these words (UTF-8, without its name), in this process's folder
    /// and environment. What it writes goes to `output`, made anew, for its owner alone. Null, with a
    /// sentence in `error`, where that fails.
    static std::unique_ptr<BackgroundProcess> start(const std::u16string& program,
                                                    const std::vector<std::string>& words,
                                                    const std::u16string& output, std::string& error);

    BackgroundProcess() = default;
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;
    virtual ~BackgroundProcess() = default;

    [[nodiscard]] virtual std::int64_t id() const noexcept = 0;
    /// Its exit status once it has ended, 128 and the signal's number where one ended it; does not wait.
    [[nodiscard]] virtual std::optional<int> ended() noexcept = 0;
};

}  // namespace vantlow
