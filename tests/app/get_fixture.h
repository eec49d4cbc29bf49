// `vantlow get` run by tests: in a folder of its own, with settings of its own.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "platform/file.h"
#include "platform/socket.h"
#include "support/content.h"
#include "support/process_run.h"
#include "support/temp_folder.h"

namespace vantlow::test {

using Words = std::vector<std::u16string>;
using std::chrono::milliseconds;

inline const std::string content = make_content(3, 2'000'000);

// The lines of a text, without their ends, the last one complete.
inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (std::string_view line : split(text, '\n')) {
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.emplace_back(line);
    }
    if (!lines.empty() && lines.back().empty()) lines.pop_back();
    return lines;
}

class GetProgram : public testing::Test {
  protected:
    GetProgram() { start_sockets(); }

    [[nodiscard]] Words words(const Words& more) const {
        Words all = {u"get", u"--settings", own.path(u"settings.ini")};
        if (std::find(more.begin(), more.end(), u"-d") == more.end())
            all.insert(all.end(), {u"-d", folder.path()});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    [[nodiscard]] RunResult get(const Words& more, RunOptions options = {}) const {
        return run_vantlow(words(more), options);
    }
    [[nodiscard]] std::unique_ptr<RunningProgram> begin(const Words& more) const {
        return std::make_unique<RunningProgram>(vantlow_program(), words(more));
    }
    // Waits until the program has told that this much is there.
    static bool reached(const RunningProgram& program, std::int64_t bytes) {
        const auto end = Clock::now() + std::chrono::seconds(20);
        while (Clock::now() < end) {
            const std::string told = program.out();
            for (const std::string_view line : split(told, '\n')) {
                const auto event = nlohmann::json::parse(line, nullptr, false);
                if (event.is_object() && event.value("event", "") == "progress" &&
                    event.value("done", 0LL) >= bytes)
                    return true;
            }
            std::this_thread::sleep_for(milliseconds(20));
        }
        return false;
    }

    // Waits until the state of file.bin is another than now.
    [[nodiscard]] bool state_was_saved() const {
        const auto state = [this] {
            std::vector<std::byte> bytes;
            (void)read_file(folder.path(u"file.bin.vantlow-job"), 100'000, bytes);  // none yet: empty
            return bytes;
        };
        const auto before = state();
        const auto end = Clock::now() + std::chrono::seconds(20);
        while (Clock::now() < end) {
            std::this_thread::sleep_for(milliseconds(50));
            const auto now = state();
            if (!now.empty() && now != before) return true;
        }
        return false;
    }

    TempFolder folder;
    TempFolder own;
};

}  // namespace vantlow::test
