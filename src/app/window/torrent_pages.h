// The tabs that a torrent has: tables of its files, peers and trackers, and the picture of its pieces.
#pragma once

#include <wx/panel.h>
#include <wx/stattext.h>

#include "app/window/drawn.h"
#include "app/window/model/torrent_tables.h"
#include "app/window/row_table.h"

namespace vantlow {

/// One of the lists, with its table, which the parent owns.
class TorrentRows : public RowSource {
  public:
    TorrentRows(wxWindow& parent, TorrentList list);

    [[nodiscard]] std::size_t rows() const override { return list_.rows(); }
    [[nodiscard]] wxString cell(std::size_t row, int column) const override;
    [[nodiscard]] wxString title() const;
    [[nodiscard]] unsigned part() const noexcept { return list_.part(); }
    [[nodiscard]] RowTable& table() noexcept { return *table_; }
    /// Shows a report that has the list's part. Rows that stay keep their place and selection.
    void take(TorrentReport report, Clock::time_point now);

  private:
    TorrentTable list_;
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
