// A table of many rows that are read when they are drawn, over the system's own list: GtkTreeView (gtk/) or
// the Win32 list view (msw/), so that screen readers see it on both.
#pragma once

#include <wx/bmpbndl.h>
#include <wx/colour.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/window/native_pane.h"

namespace vantlow {

/// Where a table reads its cells. Outlives the table.
class RowSource {
  public:
    RowSource() = default;
    RowSource(const RowSource&) = delete;
    RowSource& operator=(const RowSource&) = delete;
    virtual ~RowSource() = default;

    [[nodiscard]] virtual std::size_t rows() const = 0;
    [[nodiscard]] virtual wxString cell(std::size_t row, int column) const = 0;
    /// An index of the table's pictures, in the first column.
    [[nodiscard]] virtual int picture(std::size_t row) const {
        static_cast<void>(row);
        return 0;
    }
    /// True where the check box in front of the row is checked; see RowTable::Events::checked.
    [[nodiscard]] virtual bool is_checked(std::size_t row) const {
        static_cast<void>(row);
        return false;
    }
    /// The colour of a row's text; an invalid one: the system's.
    [[nodiscard]] virtual wxColour ink(std::size_t row) const {
        static_cast<void>(row);
        return {};
    }
};

struct TableColumn {
    int id = 0;  ///< what RowSource::cell gets
    wxString title;
    int width = 0;  ///< device-independent pixels
    bool is_number = false;
    bool operator==(const TableColumn&) const = default;
};

/// The control. Rows are numbered from 0; the selection goes by row numbers, as the system keeps it.
class RowTable : public NativePane {
  public:
    struct Events {
        std::function<void()> selected;                        ///< once for all changes of one gesture
        std::function<void(std::size_t)> opened;               ///< Enter or a double click
        OpenMenu menu;                                         ///< the context menu is wanted
        std::function<void(int column, bool further)> header;  ///< a click; further: with Shift held
        std::function<wxString()> dragged;  ///< the selection is dragged away, as this text; empty: it stays
        std::function<void()> drag_ended;   ///< it was dropped, or not; behind what the drop itself brings
        /// The box of a row was clicked, and asks for this. Rows have boxes where it is set; no pictures
        /// then.
        std::function<void(std::size_t, bool)> checked;
    };
    /// `name`: for screen readers and tests. `pictures` may be empty: none are shown.
    RowTable(wxWindow* parent, const wxString& name, const RowSource& source,
             const std::vector<wxBitmapBundle>& pictures = {}, Events events = {});
    ~RowTable() override;

    void set_columns(const std::vector<TableColumn>& columns);
    /// The columns as the user has put and sized them.
    [[nodiscard]] std::vector<TableColumn> columns() const;
    /// The sign of order in a header; several columns may have one.
    void show_order(int column, bool descending);
    void clear_order();

    /// All rows are new. The selection is gone afterwards.
    void reset();
    /// The same number of rows, other contents.
    void redraw();
    void redraw(const std::vector<std::size_t>& rows);
    /// Rows as they were numbered before, and as they are now; both ascending.
    void remove_and_insert(const std::vector<std::size_t>& removed, const std::vector<std::size_t>& inserted);

    [[nodiscard]] std::vector<std::size_t> selection() const;
    void select(const std::vector<std::size_t>& rows);
    void select_all();
    void show_row(std::size_t row);
    /// The row that something dropped at a point of the screen would come in front of; rows() where that is
    /// behind all. None beside the control.
    [[nodiscard]] std::optional<std::size_t> gap_at(const wxPoint& on_screen) const;
    /// Marks such a place while something is dragged over the table, and scrolls at its edges; none: no mark.
    void mark_gap(std::optional<std::size_t> row);

    struct Control;  ///< the system's own

  private:
    [[nodiscard]] wxPoint menu_place() const override;

    const RowSource& source_;
    Events events_;
    std::vector<TableColumn> columns_;
    Control* control_ = nullptr;
    friend struct Control;
};

}  // namespace vantlow
