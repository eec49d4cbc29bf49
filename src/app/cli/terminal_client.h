// A terminal as a client of an engine: the ends of the jobs are reported there, and the engine's questions
// are asked there.
#pragma once

#include <atomic>
#include <deque>

#include "app/cli/engine_texts.h"
#include "app/cli/job_output.h"
#include "base/mutex.h"
#include "engine/engine.h"
#include "platform/thread.h"

namespace vantlow {

/// The status of all jobs together: that of the only failure, or the one that all failures share; else
/// Exit::failed.
class StatusOfAll {
  public:
    void add(const Result& result) {
        const Exit status = exit_of(result);
        if (status == Exit::done) return;
        status_ = failed_ && status != status_ ? Exit::failed : status;
        failed_ = true;
    }
    [[nodiscard]] Exit status() const noexcept { return status_; }

  private:
    bool failed_ = false;
    Exit status_ = Exit::done;
};

/// Listens as long as it lives. Used from the engine's thread; the arguments of its constructor outlive it.
class TerminalClient : public EngineVoice {
  public:
    TerminalClient(Engine& engine, JobOutput& output, StopSource& stop, ThreadPool& threads);
    ~TerminalClient() override;

    /// Returns the time that Engine::run() is to give the questions of a client like this one.
    [[nodiscard]] std::chrono::milliseconds question_time() const;
    [[nodiscard]] Exit status() const noexcept { return all_.status(); }

    void ended(const JobEnd& end) override { report_end(end, end.outcome); }
    void followed(const Followed& followed) override;
    void asked(const std::vector<Question>& open) override;
    void logged(const std::vector<LogLine>& lines) override;

  protected:
    /// Reports the end of a job, with this outcome in place of its own.
    void report_end(const JobEnd& end, const JobOutcome& outcome);
    void say_wrong(const std::string& text) override { output_.complain(text); }

    Engine& engine_;
    JobOutput& output_;
    StopSource& stop_;
    StatusOfAll all_;

  private:
    void ask_at_terminal();

    ThreadPool& threads_;
    StopSource asking_stop_;
    Mutex mutex_;
    std::deque<Question> to_ask_ VANTLOW_GUARDED_BY(mutex_);
    bool asking_ VANTLOW_GUARDED_BY(mutex_) = false;              ///< the thread that asks runs
    std::uint64_t last_question_ VANTLOW_GUARDED_BY(mutex_) = 0;  ///< the last one that was taken up
    ThreadPool::Running asker_;                                   ///< last
};

}  // namespace vantlow
