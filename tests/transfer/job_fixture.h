// One job run by its main thread, as tests see it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "base/safe_name.h"
#include "base/string_table.h"
#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "runtime/host_names.h"
#include "storage/resume_state.h"
#include "store/settings.h"
#include "support/content.h"
#include "support/fault_hook.h"
#include "support/file_server.h"
#include "support/recording_log.h"
#include "support/temp_folder.h"
#include "transfer/job/main_thread.h"

namespace vantlow::test {

/// Holds the first operation that is looked for until the log says something, and a moment longer, in which
/// whoever said it comes to what it leads to.
class HoldUntilLogged : public FaultHook {
  public:
    /// `end`: where the bytes of a file's operation end.
    using Wanted = std::function<bool(Operation operation, std::int64_t end)>;
    HoldUntilLogged(const RecordingLog& log, std::string_view until, Wanted wanted)
        : log_(log), until_(until), wanted_(std::move(wanted)) {}
    int before(Operation operation, std::u16string_view, std::int64_t offset,
               std::int64_t length) noexcept override {
        if (!wanted_(operation, offset + length) || reached.exchange(true)) return 0;
        released = log_.wait_for(until_);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return 0;
    }
    std::atomic<bool> reached{false};
    std::atomic<bool> released{false};

  private:
    const RecordingLog& log_;
    const std::string_view until_;
    const Wanted wanted_;
};

/// Everything that a job needs, small and fast: no pauses between attempts, a split size that small contents
/// are cut by.
class JobTest : public testing::Test {
  protected:
    JobTest() {
        start_sockets();
        set(setting::split_size, 16 * 1024);
        libraries = load_libraries(folder_of(program_path()));
        host_names.emplace(libraries.names);
    }

    void set(const NumberSetting& setting, std::int64_t value) {
        settings.override_value(setting.section, setting.key, to_utf16(std::to_string(value)));
    }

    [[nodiscard]] std::unique_ptr<CJobNode> make_job(const std::u16string& address,
                                                     int connections = 1) const {
        auto job = std::make_unique<CJobNode>();
        job->address = address;
        job->path = join_path(folder.path(), u"");
        job->connections = job->max_threads = connections;
        job->retry_delay = 0;
        return job;
    }

    /// The job that an earlier run of this address left in the folder; null when there is none.
    [[nodiscard]] std::unique_ptr<CJobNode> earlier_job(const std::u16string& address,
                                                        int connections = 1) const {
        ResumeIndex index(folder.path());
        auto job = index.take(address, {});
        if (job) {
            job->connections = job->max_threads = connections;
            job->retry_delay = 0;
        }
        return job;
    }

    /// A job on its way.
    class Run {
      public:
        Run(JobTest& test, CJobNode& job, RunOptions options)
            : thread_(job, {test.network, test.libraries, test.settings, test.stop, test.threads},
                      std::move(options), test.log, [this] { done_.set_value(); }) {
            EXPECT_EQ(thread_.start().code, Code::ok);
        }
        ~Run() {
            thread_.stop();
            thread_.join();
        }
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;

        bool wait(std::chrono::milliseconds at_most = std::chrono::seconds(30)) {
            return future_.wait_for(at_most) == std::future_status::ready;
        }
        /// Its end; a job that does not end in time is a failure of the test, and stopped.
        JobOutcome end(std::chrono::milliseconds at_most = std::chrono::seconds(30)) {
            if (!wait(at_most)) ADD_FAILURE() << "the job did not end in time";
            thread_.stop();
            thread_.join();
            return thread_.outcome();
        }
        bool wait_for_done(std::int64_t bytes, std::chrono::milliseconds at_most = std::chrono::seconds(15)) {
            const auto until = Clock::now() + at_most;
            while (Clock::now() < until) {
                if (thread_.progress().done >= bytes) return true;
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            return false;
        }
        CTransferMainThread& thread() { return thread_; }

      private:
        std::promise<void> done_;
        std::future<void> future_ = done_.get_future();
        CTransferMainThread thread_;
    };

    JobOutcome run(CJobNode& job, RunOptions options = {}) {
        Run running(*this, job, std::move(options));
        return running.end();
    }

    /// It ended well, its file holds this and stands alone in the folder, which is empty then.
    void expect_file(const JobOutcome& outcome, std::string_view content) {
        EXPECT_EQ(outcome.result.code, Code::ok) << outcome.result.message() << "\n" << log.all();
        EXPECT_TRUE(file_has(outcome.path, content)) << log.all();
        EXPECT_TRUE(only({name_of(outcome.path)}));
        clear_folder();
    }
    void clear_folder() const {
        for (const auto& name : folder.names()) ASSERT_TRUE(remove_file(folder.path(name)).ok());
    }
    /// A job that goes through a proxy on this machine.
    static RunOptions through(int kind, std::uint16_t port, const char* user = "",
                              const char* password = "") {
        RunOptions options;
        options.proxy.kind = kind;
        options.proxy.host = "127.0.0.1";
        options.proxy.port = port;
        options.proxy.user = user;
        options.proxy.password = password;
        return options;
    }

    /// These alone are in the folder.
    [[nodiscard]] testing::AssertionResult only(const std::vector<std::u16string>& names) const {
        if (folder.names() == names) return testing::AssertionSuccess();
        auto result = testing::AssertionFailure() << "the folder holds:";
        for (const auto& name : folder.names()) result << " " << to_utf8(name);
        return result << "\n" << log.all();
    }

    TempFolder folder;
    RecordingLog log;
    Settings settings;
    LibraryTables libraries;
    std::optional<HostNameScope> host_names;
    StopSource stop;
    ConnectionServices network{&libraries.secur};
    ThreadPool threads;
};

}  // namespace vantlow::test
