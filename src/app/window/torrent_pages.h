// The tabs that a torrent has: tables of its files, peers and trackers, and the picture of its pieces.
#pragma once

#include <wx/panel.h>
#include <wx/stattext.h>

#include <functional>

#include "app/window/drawn.h"
#include "app/window/model/torrent_tables.h"
#include "app/window/model/window_model.h"
#include "app/window/row_table.h"

namespace vantlow {

/// One of the lists, with its table, which the parent owns. Files are chosen and trackers changed here.
class TorrentRows : public RowSource {
  public:
    /// `changed`: something was changed, and a new report tells more.
    TorrentRows(wxWindow& parent, TorrentList list, const WindowModel& model, std::function<void()> changed);

    [[nodiscard]] std::size_t rows() const override { return list_.rows(); }
    [[nodiscard]] wxString cell(std::size_t row, int column) const override;
    [[nodiscard]] bool is_checked(std::size_t row) const override;
    [[nodiscard]] wxString title() const;
    [[nodiscard]] unsigned part() const noexcept { return list_.part(); }
    [[nodiscard]] RowTable& table() noexcept { return *table_; }
    /// Shows a report of a job that has the list's part. Rows that stay keep their place and selection.
    void take(const Guid& job, TorrentReport report, Clock::time_point now);

  private:
    void pop_up_files(const wxPoint& at);
    void pop_up_trackers(const wxPoint& at);
    void want(const std::vector<std::size_t>& rows, FilePriority priority);
    [[nodiscard]] std::vector<std::size_t> all_rows() const;
    void choose(const std::vector<std::size_t>& in, const std::vector<std::size_t>& out);
    void add_trackers();
    void remove_trackers(const std::vector<std::size_t>& rows);
    void end(const Done& done);

    TorrentTable list_;
    const WindowModel& model_;
    std::function<void()> changed_;
    Guid job_;
    bool is_sequential_ = false;  ///< as the last report has it, and so the next one
    bool has_ends_first_ = false;
    RowTable* table_ = nullptr;
};

/// The picture with a sentence below it.
class TorrentPieces : public wxPanel {
  public:
    explicit TorrentPieces(wxWindow* parent);
    /// Of a report with its pieces.
    void show(const TorrentReport& report);

  private:
    PiecePicture* picture_ = nullptr;
    wxStaticText* sentence_ = nullptr;
};

}  // namespace vantlow
