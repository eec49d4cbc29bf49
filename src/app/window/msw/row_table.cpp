// The table over the list view of Windows, as a list that owns no data.
#include "app/window/row_table.h"

#include <wx/dataobj.h>
#include <wx/dnd.h>
#include <wx/listctrl.h>
#include <wx/settings.h>

#include <algorithm>
#include <utility>

namespace vantlow {

struct RowTable::Control : public wxListCtrl {
    Control(RowTable& table, const wxString& name, const std::vector<wxBitmapBundle>& pictures)
        : wxListCtrl(&table, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxLC_REPORT | wxLC_VIRTUAL),
          owner(table) {
        SetName(name);
        has_pictures = !pictures.empty();
        if (has_pictures) {
            wxVector<wxBitmapBundle> bundles;
            for (const wxBitmapBundle& picture : pictures) bundles.push_back(picture);
            SetSmallImages(bundles);
        }
        if (owner.events_.checked) {
            EnableCheckBoxes();
            for (const bool is_checked : {true, false}) {
                Bind(is_checked ? wxEVT_LIST_ITEM_CHECKED : wxEVT_LIST_ITEM_UNCHECKED,
                     [this, is_checked](wxListEvent& event) {
                         if (is_row(event.GetIndex()))
                             owner.events_.checked(static_cast<std::size_t>(event.GetIndex()), is_checked);
                     });
            }
        }
        for (const auto& event : {wxEVT_LIST_ITEM_SELECTED, wxEVT_LIST_ITEM_DESELECTED})
            Bind(event, [this](wxListEvent&) { owner.note_selection(owner.events_.selected); });
        Bind(wxEVT_LIST_ITEM_ACTIVATED, [this](wxListEvent& event) {
            if (owner.events_.opened && event.GetIndex() >= 0)
                owner.events_.opened(static_cast<std::size_t>(event.GetIndex()));
        });
        Bind(wxEVT_CONTEXT_MENU, [this](wxContextMenuEvent& event) {
            const bool is_by_key = event.GetPosition() == wxDefaultPosition;
            if (owner.events_.menu) owner.events_.menu(is_by_key ? owner.menu_place() : event.GetPosition());
        });
        Bind(wxEVT_LIST_COL_CLICK, [this](wxListEvent& event) {
            const auto column = static_cast<std::size_t>(event.GetColumn());
            if (owner.events_.header && column < owner.columns_.size())
                owner.events_.header(owner.columns_[column].id, wxGetKeyState(WXK_SHIFT));
        });
        Bind(wxEVT_LIST_BEGIN_DRAG, [this](wxListEvent&) { drag(); });
    }
    void drag() {
        const wxString text = owner.events_.dragged ? owner.events_.dragged() : wxString();
        if (text.empty()) return;
        wxTextDataObject data(text);
        wxDropSource source(data, this);
        source.DoDragDrop(wxDrag_CopyOnly);
        // The work that the drop brings is done behind this, when the loop runs again.
        CallAfter([this] { CallAfter(owner.events_.drag_ended); });
    }
    [[nodiscard]] bool is_row(long row) const {
        return row >= 0 && static_cast<std::size_t>(row) < owner.source_.rows();
    }
    wxString OnGetItemText(long row, long column) const override {
        if (!is_row(row) || static_cast<std::size_t>(column) >= owner.columns_.size()) return {};
        return owner.source_.cell(static_cast<std::size_t>(row),
                                  owner.columns_[static_cast<std::size_t>(column)].id);
    }
    bool OnGetItemIsChecked(long row) const override {
        return is_row(row) && owner.source_.is_checked(static_cast<std::size_t>(row));
    }
    int OnGetItemColumnImage(long row, long column) const override {
        if (column != 0 || !has_pictures || !is_row(row)) return -1;
        return owner.source_.picture(static_cast<std::size_t>(row));
    }
    wxItemAttr* OnGetItemAttr(long row) const override {
        if (gap && row == static_cast<long>(*gap)) {
            attribute = wxItemAttr(wxSystemSettings::GetColour(wxSYS_COLOUR_HIGHLIGHTTEXT),
                                   wxSystemSettings::GetColour(wxSYS_COLOUR_HIGHLIGHT), wxFont());
            return &attribute;
        }
        const wxColour ink = is_row(row) ? owner.source_.ink(static_cast<std::size_t>(row)) : wxColour();
        if (!ink.IsOk()) return nullptr;
        attribute = wxItemAttr(ink, wxColour(), wxFont());
        return &attribute;
    }

    RowTable& owner;
    bool has_pictures = false;
    std::optional<std::size_t> gap;  // the row that a drop would come in front of
    mutable wxItemAttr attribute;    // the toolkit reads it before it asks for the next one
};

RowTable::RowTable(wxWindow* parent, const wxString& name, const RowSource& source,
                   const std::vector<wxBitmapBundle>& pictures, Events events)
    : NativePane(parent), source_(source), events_(std::move(events)) {
    control_ = new Control(*this, name, pictures);
    fill_with(*control_);
}

RowTable::~RowTable() = default;

void RowTable::set_columns(const std::vector<TableColumn>& columns) {
    control_->DeleteAllColumns();
    columns_ = columns;
    for (const TableColumn& column : columns_) {
        const auto align = column.is_number ? wxLIST_FORMAT_RIGHT : wxLIST_FORMAT_LEFT;
        control_->AppendColumn(column.title, align, control_->FromDIP(column.width));
    }
    control_->SetItemCount(static_cast<long>(source_.rows()));
}

std::vector<TableColumn> RowTable::columns() const {
    std::vector<TableColumn> columns;
    const int count = control_->GetColumnCount();
    const wxArrayInt order = control_->GetColumnsOrder();
    for (int at = 0; at < count; ++at) {
        const int index =
            static_cast<std::size_t>(at) < order.size() ? order[static_cast<std::size_t>(at)] : at;
        TableColumn as_put = columns_[static_cast<std::size_t>(index)];
        as_put.width = control_->ToDIP(control_->GetColumnWidth(index));
        columns.push_back(as_put);
    }
    return columns;
}

void RowTable::show_order(int column, bool descending) {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (columns_[i].id == column) control_->ShowSortIndicator(static_cast<int>(i), !descending);
    }
}

void RowTable::clear_order() {
    control_->RemoveSortIndicator();
}

void RowTable::reset() {
    const Silence silence(*this);
    control_->SetItemState(-1, 0, wxLIST_STATE_SELECTED);
    control_->SetItemCount(static_cast<long>(source_.rows()));
    control_->Refresh();
}

void RowTable::redraw() {
    control_->Refresh();
}

void RowTable::redraw(const std::vector<std::size_t>& rows) {
    const long first = control_->GetTopItem();
    const long last = first + control_->GetCountPerPage() + 1;
    for (const std::size_t row : rows) {
        if (const auto at = static_cast<long>(row); at >= first && at <= last) control_->RefreshItem(at);
    }
}

void RowTable::remove_and_insert(const std::vector<std::size_t>& /*removed*/,
                                 const std::vector<std::size_t>& /*inserted*/) {
    reset();  // the list asks for rows by their numbers: it has nothing to move but the selection
}

std::vector<std::size_t> RowTable::selection() const {
    std::vector<std::size_t> rows;
    for (long row = -1; (row = control_->GetNextItem(row, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED)) >= 0;)
        rows.push_back(static_cast<std::size_t>(row));
    return rows;
}

void RowTable::select(const std::vector<std::size_t>& rows) {
    const Silence silence(*this);
    const bool all = !rows.empty() && rows.size() == source_.rows();
    control_->SetItemState(-1, all ? wxLIST_STATE_SELECTED : 0, wxLIST_STATE_SELECTED);
    for (std::size_t i = 0; i < rows.size() && !all; ++i)
        control_->SetItemState(static_cast<long>(rows[i]), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
}

void RowTable::select_all() {
    control_->SetItemState(-1, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    note_selection(events_.selected);
}

void RowTable::show_row(std::size_t row) {
    control_->EnsureVisible(static_cast<long>(row));
    control_->SetItemState(static_cast<long>(row), wxLIST_STATE_FOCUSED, wxLIST_STATE_FOCUSED);
}

wxPoint RowTable::menu_place() const {
    wxRect room;
    const long first = control_->GetTopItem();
    const long last = first + control_->GetCountPerPage();
    const long row = control_->GetNextItem(first - 1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED);
    if (row < 0 || row > last || !control_->GetItemRect(row, room, wxLIST_RECT_LABEL)) room = wxRect();
    return control_->ClientToScreen(wxPoint(room.x, room.y + room.height));
}

std::optional<std::size_t> RowTable::gap_at(const wxPoint& on_screen) const {
    const wxPoint point = control_->ScreenToClient(on_screen);
    if (!control_->GetClientRect().Contains(point)) return std::nullopt;
    const long top = control_->GetTopItem();
    wxRect room;
    const bool is_above =
        control_->is_row(top) && control_->GetItemRect(top, room) && point.y < room.y;  // on the header
    if (is_above) return static_cast<std::size_t>(top);
    int flags = 0;
    const long row = control_->HitTest(point, flags);
    if (!control_->is_row(row) || !control_->GetItemRect(row, room)) return source_.rows();
    return static_cast<std::size_t>(row) + (point.y > room.y + room.height / 2 ? 1 : 0);
}

// The list view has no line between rows: the row that the drop comes in front of is marked.
void RowTable::mark_gap(std::optional<std::size_t> row) {
    const auto before = std::exchange(control_->gap, row);
    if (before == row) return;
    for (const auto& one : {before, row}) {
        if (one && *one < source_.rows()) control_->RefreshItem(static_cast<long>(*one));
    }
    if (!row || source_.rows() == 0) return;
    control_->EnsureVisible(static_cast<long>(std::min(*row + 1, source_.rows() - 1)));
    control_->EnsureVisible(static_cast<long>(*row - std::min<std::size_t>(*row, 2)));
}

}  // namespace vantlow
