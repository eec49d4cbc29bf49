// The program itself on a data folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "base/text.h"
#include "platform/file.h"
#include "support/content.h"
#include "support/process_run.h"
#include "support/temp_folder.h"

namespace vantlow::test {

class StoreRun : public testing::Test {
  protected:
    /// Nothing looks for peers beyond this machine.
    StoreRun() { folder.write(u"settings.ini", "[Torrent]\nDHT=0\nLSD=0\nPortMapping=0\n"); }
    /// Everything that the program would find of this machine's user stands in the test's folder.
    [[nodiscard]] RunOptions environment() const {
        RunOptions options;
        options.folder = folder.path();
        options.environment = {{"VANTLOW_DATA_DIR", folder.path(u"data")},
                               {"VANTLOW_SETTINGS", folder.path(u"settings.ini")},
                               {"HOME", folder.path()},
                               {"XDG_RUNTIME_DIR", folder.path()},
                               {"XDG_CONFIG_HOME", folder.path(u"xdg-config")}};
        // Wine's own bin takes it for one of Unix.
        if (path_separator() == u'/')
            options.environment.emplace_back("XDG_DATA_HOME", folder.path(u"xdg-data"));
        return options;
    }
    RunResult run(const std::vector<std::u16string>& words) const {
        return run_vantlow(words, environment());
    }
    /// The output of a command that must end well.
    std::string ok(const std::vector<std::u16string>& words) const {
        const RunResult result = run(words);
        EXPECT_EQ(result.status, 0) << to_utf8(words[0]) << ": " << result.err;
        return result.out;
    }
    /// Files one job; its id.
    std::string add(std::vector<std::u16string> words) const {
        words.insert(words.begin(), u"add");
        const std::string out = ok(words);
        return out.substr(0, out.find_first_of("\r\n"));
    }
    nlohmann::json list(std::vector<std::u16string> words = {}) const {
        words.insert(words.begin(), {u"list", u"--json"});
        return nlohmann::json::parse(ok(words));
    }
    /// With "sharing" and "moving" for a job that is shared or moved.
    std::string state_of(const std::string& id) const {
        for (const auto& job : list()) {
            if (job["id"] == id) return job.contains("activity") ? job["activity"] : job["state"];
        }
        return "not there";
    }

    TempFolder folder;
};

}  // namespace vantlow::test
