// The actions on the selected jobs and on categories: they ask where that is needed and tell what failed.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/window/commands.h"
#include "app/window/model/window_model.h"

class wxWindow;

namespace vantlow {

class JobActions {
  public:
    using Say = std::function<void(const std::string&)>;
    /// `say` shows a sentence of what went wrong (UTF-8). `parent`: of dialogs.
    JobActions(wxWindow& parent, WindowModel& model, Say say)
        : parent_(parent), model_(model), say_(std::make_shared<Say>(std::move(say))) {}

    using Selected = std::vector<const CJobNode*>;
    /// The records of the jobs that are selected now; good until the engine works again.
    [[nodiscard]] Selected selected() const;
    /// True where the command can be given for them.
    [[nodiscard]] bool can(Command command, const Selected& jobs) const;
    /// Gives it. False for a command that is no job's.
    bool give(Command command);
    void move(const std::vector<Guid>& jobs, const Guid& category);
    /// Has jobs that wait stand in front of another one; zero: behind all.
    void reorder_before(const std::vector<Guid>& jobs, const Guid& next);
    void start(const std::vector<Guid>& jobs);
    /// All jobs, whichever are shown; those that have finished stay so.
    void start_or_stop_everything(bool start_them);
    /// Files what a draft says and starts it, as soon as it is safe. Returns the new jobs.
    std::vector<Guid> add(const JobDraft& draft);
    /// Adds other addresses of the same file to a job.
    void add_mirrors(const Guid& job, const std::vector<std::string>& links);
    /// Opens the file of a job.
    void open(const Guid& job);
    void add_category(const Guid& parent);
    void edit_category(const Guid& category);
    void remove_category(const Guid& category);
    /// To be called after a change: the jobs that were added begin once they are safe on the disk.
    void settle();

  private:
    [[nodiscard]] bool can_be_shared(const CJobNode& job) const;
    void start_or_stop_all(bool start);
    void reorder(Order order);
    void start_over();
    void rename();
    void move_files();
    void open_selected(bool folder);
    void open(const CJobNode& job, bool folder);
    void copy_addresses();
    void remove(bool with_files);
    void tell(const Done& done, const std::string& subject);
    void tell_all();

    wxWindow& parent_;
    WindowModel& model_;
    std::shared_ptr<Say> say_;  ///< an answer of the disk may come after the window's end
    std::vector<std::string> faults_;
};

}  // namespace vantlow
