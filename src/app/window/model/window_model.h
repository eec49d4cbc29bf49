// Everything that the window's panes draw from, fed by the engine's news.
#pragma once

#include <chrono>
#include <functional>

#include "app/process/live_jobs.h"
#include "app/window/model/job_details.h"
#include "app/window/model/job_rows.h"
#include "app/window/model/new_jobs.h"
#include "app/window/model/question_queue.h"
#include "app/window/model/setting_pages.h"
#include "app/window/model/speed_history.h"
#include "app/window/model/status_line.h"
#include "app/window/model/view_tree.h"

namespace vantlow {

/// The one listener of the window. Belongs to the engine's thread, outlives the panes, and is destroyed
/// before the engine.
class WindowModel : public EngineListener {
  public:
    /// The engine's logs are gathered where Engine::Running::gathers_log is set.
    WindowModel(Engine& engine, const Settings& settings);
    ~WindowModel() override;

    /// Once a second.
    void tick();

    /// Called with what is worth a notification: a job that ended by itself, `failed` or not.
    std::function<void(const Guid& job, bool failed)> on_end;
    /// Sentences (UTF-8) of the store, of documents that could not be followed, of files that could not be
    /// moved.
    std::function<void(const std::string& text)> on_trouble;

    Engine& engine;
    LiveJobs live;
    JobRows rows;
    ViewTree tree;
    JobDetails details;
    SpeedHistory history;
    StatusLine status;
    NewJobs new_jobs;
    SettingPages settings;
    QuestionQueue questions;

  private:
    void changed(const Changes& changes) override;
    void ended(const JobEnd& end) override;
    void followed(const Followed& followed) override;
    void moved(const Guid& job, const Done& done) override;
    void asked(const std::vector<Question>& open) override;
    void logged(const std::vector<LogLine>& lines) override;
    void store_said(const std::string& text) override;
};

}  // namespace vantlow
