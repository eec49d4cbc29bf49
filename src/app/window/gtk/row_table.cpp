// The table over GtkTreeView, which stands behind the toolkit's data view there.
#include "app/window/row_table.h"

#include <wx/dataobj.h>
#include <wx/dataview.h>

#include <algorithm>

#include "app/window/system.h"

namespace vantlow {
namespace {

// Rows that are told of one by one.
constexpr std::size_t most_single = 200;

/// Answers GTK while it draws.
class Model : public wxDataViewVirtualListModel {
  public:
    using Checked = std::function<void(std::size_t, bool)>;
    Model(const RowSource& source, const std::vector<wxBitmapBundle>& pictures, Checked checked)
        : source_(source), pictures_(pictures), checked_(std::move(checked)) {}

    std::vector<TableColumn> columns;

    void GetValueByRow(wxVariant& value, unsigned row, unsigned column) const override {
        const int id = column < columns.size() ? columns[column].id : 0;
        const bool there = row < source_.rows();
        const wxString text = there ? source_.cell(row, id) : wxString();
        if (column == 0 && checked_) {
            const bool is_checked = there && source_.is_checked(row);
            value << wxDataViewCheckIconText(text, wxBitmapBundle(),
                                             is_checked ? wxCHK_CHECKED : wxCHK_UNCHECKED);
            return;
        }
        if (column != 0 || pictures_.empty()) {
            value = text;
            return;
        }
        const auto picture = static_cast<std::size_t>(there ? source_.picture(row) : 0);
        value << wxDataViewIconText(text, pictures_[std::min(picture, pictures_.size() - 1)]);
    }
    bool SetValueByRow(const wxVariant& value, unsigned row, unsigned /*column*/) override {
        if (!checked_ || row >= source_.rows()) return false;
        wxDataViewCheckIconText wish;
        wish << value;
        checked_(row, wish.GetCheckedState() == wxCHK_CHECKED);
        return true;
    }
    bool GetAttrByRow(unsigned row, unsigned /*column*/, wxDataViewItemAttr& attributes) const override {
        const wxColour ink = row < source_.rows() ? source_.ink(row) : wxColour();
        if (ink.IsOk()) attributes.SetColour(ink);
        return ink.IsOk();
    }

  private:
    const RowSource& source_;
    const std::vector<wxBitmapBundle> pictures_;
    const Checked checked_;
};

}  // namespace

struct RowTable::Control : public wxDataViewCtrl {
    Control(RowTable& table, const wxString& name, const std::vector<wxBitmapBundle>& pictures)
        : wxDataViewCtrl(&table, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxDV_MULTIPLE), owner(table) {
        name_for_readers(*this, name);
        has_pictures = !pictures.empty();
        model = new Model(table.source_, pictures, table.events_.checked);
        AssociateModel(model.get());
        Bind(wxEVT_DATAVIEW_SELECTION_CHANGED,
             [this](wxDataViewEvent&) { owner.note_selection(owner.events_.selected); });
        Bind(wxEVT_DATAVIEW_ITEM_ACTIVATED, [this](wxDataViewEvent& event) {
            if (owner.events_.opened && event.GetItem().IsOk())
                owner.events_.opened(model->GetRow(event.GetItem()));
        });
        Bind(wxEVT_DATAVIEW_ITEM_CONTEXT_MENU, [this](wxDataViewEvent&) {
            if (owner.events_.menu) owner.events_.menu(wxDefaultPosition);
        });
        Bind(wxEVT_DATAVIEW_COLUMN_HEADER_CLICK, [this](wxDataViewEvent& event) {
            const auto column = static_cast<std::size_t>(event.GetColumn());
            if (owner.events_.header && column < model->columns.size())
                owner.events_.header(model->columns[column].id, wxGetKeyState(WXK_SHIFT));
        });
        if (!owner.events_.dragged) return;
        EnableDragSource(wxDF_UNICODETEXT);
        keep_selection_for_drags(*this);
        hear_end_of_drags(*this, owner.events_.drag_ended);
        Bind(wxEVT_DATAVIEW_ITEM_BEGIN_DRAG, [this](wxDataViewEvent& event) {
            const wxString text = owner.events_.dragged();
            if (text.empty()) return event.Veto();
            event.SetDataObject(new wxTextDataObject(text));
            event.SetDragFlags(wxDrag_CopyOnly);
        });
    }

    // GTK goes through all rows for each column that comes or goes: none are there meanwhile.
    void rebuild() {
        if (model->GetCount() > 0) model->Reset(0);
        ClearColumns();
        for (std::size_t i = 0; i < model->columns.size(); ++i) {
            const TableColumn& column = model->columns[i];
            const wxAlignment align = column.is_number ? wxALIGN_RIGHT : wxALIGN_LEFT;
            const int flags = wxDATAVIEW_COL_RESIZABLE | wxDATAVIEW_COL_REORDERABLE;
            wxDataViewRenderer* renderer = nullptr;
            if (i == 0 && owner.events_.checked) {
                renderer = new wxDataViewCheckIconTextRenderer(wxDATAVIEW_CELL_ACTIVATABLE, align);
            } else if (i == 0 && has_pictures) {
                renderer = new wxDataViewIconTextRenderer("wxDataViewIconText", wxDATAVIEW_CELL_INERT, align);
            } else {
                renderer = new wxDataViewTextRenderer("string", wxDATAVIEW_CELL_INERT, align);
            }
            renderer->EnableEllipsize(wxELLIPSIZE_END);
            AppendColumn(new wxDataViewColumn(column.title, renderer, static_cast<unsigned>(i),
                                              FromDIP(column.width), align, flags));
        }
        make_rows_equal(*this, owner.events_.header != nullptr);
    }

    [[nodiscard]] wxDataViewColumn* column_of(int id) const {
        for (std::size_t i = 0; i < model->columns.size(); ++i) {
            if (model->columns[i].id != id) continue;
            for (unsigned at = 0; at < GetColumnCount(); ++at) {
                if (GetColumn(at)->GetModelColumn() == i) return GetColumn(at);
            }
        }
        return nullptr;
    }

    RowTable& owner;
    bool has_pictures = false;
    wxObjectDataPtr<Model> model;
};

RowTable::RowTable(wxWindow* parent, const wxString& name, const RowSource& source,
                   const std::vector<wxBitmapBundle>& pictures, Events events)
    : NativePane(parent), source_(source), events_(std::move(events)) {
    control_ = new Control(*this, name, pictures);
    fill_with(*control_);
    open_menu_by_key(events_.menu);
}

RowTable::~RowTable() = default;

void RowTable::set_columns(const std::vector<TableColumn>& columns) {
    control_->model->columns = columns;
    const Silence silence(*this);
    control_->rebuild();
    control_->model->Reset(static_cast<unsigned>(source_.rows()));
}

std::vector<TableColumn> RowTable::columns() const {
    std::vector<TableColumn> columns;
    for (unsigned at = 0; at < control_->GetColumnCount(); ++at) {
        const wxDataViewColumn& column = *control_->GetColumn(at);
        TableColumn as_put = control_->model->columns[column.GetModelColumn()];
        if (const int width = column.GetWidth(); width > 0) as_put.width = control_->ToDIP(width);
        columns.push_back(as_put);
    }
    return columns;
}

void RowTable::show_order(int column, bool descending) {
    if (wxDataViewColumn* const shown = control_->column_of(column))
        show_column_order(*control_, control_->GetColumnPosition(shown), true, descending);
}

void RowTable::clear_order() {
    for (unsigned at = 0; at < control_->GetColumnCount(); ++at)
        show_column_order(*control_, static_cast<int>(at), false, false);
}

void RowTable::reset() {
    const Silence silence(*this);
    control_->model->Reset(static_cast<unsigned>(source_.rows()));
}

// Screen readers hear of rows that change, one by one, and of nothing that is only drawn anew.
void RowTable::redraw() {
    if (source_.rows() > most_single) return redraw_rows(*control_);
    for (std::size_t row = 0; row < source_.rows(); ++row)
        control_->model->RowChanged(static_cast<unsigned>(row));
}

void RowTable::redraw(const std::vector<std::size_t>& rows) {
    // The toolkit cannot tell for sure which rows are in sight.
    if (rows.size() > most_single) return redraw_rows(*control_);
    for (const std::size_t row : rows) control_->model->RowChanged(static_cast<unsigned>(row));
}

void RowTable::remove_and_insert(const std::vector<std::size_t>& removed,
                                 const std::vector<std::size_t>& inserted) {
    const Silence silence(*this);
    for (auto row = removed.rbegin(); row != removed.rend(); ++row)
        control_->model->RowDeleted(static_cast<unsigned>(*row));
    for (const std::size_t row : inserted) control_->model->RowInserted(static_cast<unsigned>(row));
}

std::vector<std::size_t> RowTable::selection() const {
    wxDataViewItemArray items;
    control_->GetSelections(items);
    std::vector<std::size_t> rows;
    rows.reserve(items.size());
    for (const wxDataViewItem& item : items) rows.push_back(control_->model->GetRow(item));
    std::sort(rows.begin(), rows.end());
    return rows;
}

void RowTable::select(const std::vector<std::size_t>& rows) {
    const Silence silence(*this);
    if (!rows.empty() && rows.size() == source_.rows()) {
        control_->SelectAll();
    } else {
        wxDataViewItemArray items;
        for (const std::size_t row : rows) items.Add(control_->model->GetItem(static_cast<unsigned>(row)));
        control_->SetSelections(items);
    }
}

void RowTable::select_all() {
    control_->SelectAll();
    note_selection(events_.selected);
}

void RowTable::show_row(std::size_t row) {
    control_->EnsureVisible(control_->model->GetItem(static_cast<unsigned>(row)));
}

wxPoint RowTable::menu_place() const {
    const wxRect seen = control_->GetClientRect();
    wxRect room(seen.x, seen.y, 0, 0);
    const wxDataViewItem top = control_->GetTopItem();
    for (std::size_t row = top.IsOk() ? control_->model->GetRow(top) : source_.rows(); row < source_.rows();
         ++row) {
        const wxDataViewItem item = control_->model->GetItem(static_cast<unsigned>(row));
        const wxRect of_row = control_->GetItemRect(item);
        if (of_row.height <= 0 || of_row.y >= seen.GetBottom()) break;
        if (!control_->IsSelected(item)) continue;
        room = of_row;
        break;
    }
    return control_->ClientToScreen(wxPoint(room.x, room.y + room.height));
}

std::optional<std::size_t> RowTable::gap_at(const wxPoint& on_screen) const {
    const wxPoint point = control_->ScreenToClient(on_screen);
    if (!control_->GetClientRect().Contains(point)) return std::nullopt;
    wxDataViewItem item;
    wxDataViewColumn* column = nullptr;
    control_->HitTest(point, item, column);
    const wxDataViewItem top = control_->GetTopItem();
    const bool is_above = top.IsOk() && point.y < control_->GetItemRect(top).y;  // on the header
    if (is_above) return control_->model->GetRow(top);
    if (!item.IsOk()) return source_.rows();
    const wxRect room = control_->GetItemRect(item);
    return control_->model->GetRow(item) + (point.y > room.y + room.height / 2 ? 1 : 0);
}

void RowTable::mark_gap(std::optional<std::size_t> row) {
    const std::size_t rows = source_.rows();
    show_gap(*control_, row ? static_cast<int>(*row) : -1, static_cast<int>(rows));
    if (!row || rows == 0) return;
    show_row(std::min(*row + 1, rows - 1));
    show_row(*row - std::min<std::size_t>(*row, 2));
}

}  // namespace vantlow
