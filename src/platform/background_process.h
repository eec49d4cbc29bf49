// A program that is started to stay after this one has ended.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vantlow {

/// A program that outlives this process and its terminal: it has no terminal and no input, and writes into a
/// file. One thread at a time may use the object; destroying it leaves the program running.
class BackgroundProcess {
  public:
    /// Starts a program (a full path) with these arguments (UTF-8, without its name), in this process's
    /// folder and environment. Its output goes to the file `output`, which is made anew for its owner alone.
    /// Returns null, with a sentence in `error`, where that fails.
    static std::unique_ptr<BackgroundProcess> start(const std::u16string& program,
                                                    const std::vector<std::string>& words,
                                                    const std::u16string& output, std::string& error);

    BackgroundProcess() = default;
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;
    virtual ~BackgroundProcess() = default;

    [[nodiscard]] virtual std::int64_t id() const noexcept = 0;
    /// Its exit status once it has ended, or 128 plus the number of the signal that ended it. Does not wait.
    [[nodiscard]] virtual std::optional<int> ended() noexcept = 0;
};

}  // namespace vantlow
