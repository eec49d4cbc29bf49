// The tabs below the list: segments with connections, log, details of the selected job.
#pragma once

#include <wx/notebook.h>
#include <wx/srchctrl.h>

#include <vector>

#include "app/window/drawn.h"
#include "app/window/model/window_model.h"
#include "app/window/row_table.h"

namespace vantlow {

class DetailTabs : public wxNotebook {
  public:
    DetailTabs(wxWindow* parent, WindowModel& model);
    ~DetailTabs() override;

    /// Shows another job; zero: none.
    void show(const Guid& job);
    /// Some times a second.
    void look();
    /// Copies the selected lines of the tab that is seen. False where nothing of it is selected.
    bool copy();

  private:
    class Lines;
    class Connections;
    class Log;
    void build_segments();
    void build_log();
    void build_details();
    void search_log();

    const WindowModel& model_;
    JobDetails& details_;
    std::unique_ptr<Lines> lines_;
    std::unique_ptr<Connections> connections_;
    std::unique_ptr<Log> log_;
    Guid job_seen_;                    ///< whose connections the table has
    std::uint64_t revision_seen_ = 0;  ///< of the engine
    int page_seen_ = -1;
    SegmentPicture* picture_ = nullptr;
    RowTable* connection_table_ = nullptr;
    RowTable* log_table_ = nullptr;
    RowTable* detail_table_ = nullptr;
    wxSearchCtrl* log_search_ = nullptr;
};

/// Puts a text into the clipboard, and remembers that it comes from here.
void copy_text(const wxString& text);
/// The text that was put there last; for those who watch the clipboard.
const wxString& copied_text() noexcept;

}  // namespace vantlow
