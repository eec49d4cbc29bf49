// The tabs below the list: segments with connections, log, details of the selected job; a torrent has pieces,
// files, peers and trackers instead of segments.
#pragma once

#include <wx/notebook.h>
#include <wx/srchctrl.h>

#include <memory>
#include <optional>
#include <vector>

#include "app/window/drawn.h"
#include "app/window/model/window_model.h"
#include "app/window/row_table.h"
#include "app/window/torrent_pages.h"
#include "base/clock.h"

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
    enum class Tab { segments, pieces, files, peers, trackers, log, details };
    struct Page {
        Tab tab;
        wxWindow* window;
        wxString title;
        RowTable* table;          ///< whose selected lines are copied; may be null
        const RowSource* source;  ///< of the table
        int copied;               ///< the column
        enum class Kind { all, torrents, others } kind;
    };
    void build_segments();
    void build_torrent();
    void build_log();
    void build_details();
    void arrange(bool is_torrent);
    [[nodiscard]] const Page* seen() const;
    void look_at_segments(bool is_other);
    bool look_at_torrent(const Page& page, bool is_other);
    void search_log();

    const WindowModel& model_;
    JobDetails& details_;
    std::unique_ptr<Lines> lines_;
    std::unique_ptr<Connections> connections_;
    std::unique_ptr<Log> log_;
    std::vector<std::unique_ptr<TorrentRows>> torrent_rows_;
    std::vector<Page> pages_;  ///< all that there are, in their order; the notebook has those of the job
    Tab wanted_ = Tab::segments;
    bool shows_torrent_ = false;
    bool arranging_ = false;                      ///< pages come and go, nobody chooses one
    Guid job_seen_;                               ///< that the page shows
    std::optional<std::uint64_t> revision_seen_;  ///< of the engine
    Tab tab_seen_ = Tab::segments;
    Clock::time_point next_report_{};  ///< of a torrent
    bool torrent_rests_ = true;        ///< by the last report
    SegmentPicture* picture_ = nullptr;
    TorrentPieces* pieces_ = nullptr;
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
