// A terminal as a client of an engine: what becomes of the jobs is told there, and what the engine asks is
// asked there.
#pragma once

#include <atomic>
#include <deque>

#include "app/engine_voice.h"
#include "app/exit.h"
#include "app/get_output.h"
#include "base/mutex.h"
#include "engine/engine.h"
#include "platform/thread_pool.h"

namespace vantlow {

/// The status of all jobs together: that of the only failure, or the one that all failures share.
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

/// Listens as long as it lives. Used from the engine's thread; all that it is given outlives it.
class TerminalClient : public EngineVoice {
  public:
    TerminalClient(Engine& engine, GetOutput& output, StopSource& stop, ThreadPool& threads);
    ~TerminalClient() override;

    /// What Engine::run() is to be told for a client like this one.
    [[nodiscard]] std::chrono::milliseconds question_time() const;
    [[nodiscard]] Exit status() const noexcept { return all_.status(); }

    void ended(const JobEnd& end) override { tell_end(end, end.outcome); }
    void followed(const Followed& followed) override;
    void asked(const std::vector<Question>& open) override;
    void logged(const std::vector<LogLine>& lines) override;

  protected:
    /// `outcome`: as it is to be told.
    void tell_end(const JobEnd& end, const JobOutcome& outcome);
    void say_wrong(const std::string& text) override { output_.complain(text); }

    Engine& engine_;
    GetOutput& output_;
    StopSource& stop_;
    StatusOfAll all_;

  private:
    void ask_at_terminal();

    ThreadPool& threads_;
    StopSource asking_stop_;
    Mutex mutex_;
    std::deque<Question> to_ask_ VANTLOW_GUARDED_BY(mutex_);
    bool asking_ VANTLOW_GUARDED_BY(mutex_) = false;              ///< the thread runs
    std::uint64_t last_question_ VANTLOW_GUARDED_BY(mutex_) = 0;  ///< that was taken up
    ThreadPool::Running asker_;                                   ///< last
};

}  // namespace vantlow
