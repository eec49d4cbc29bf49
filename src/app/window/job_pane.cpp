#include "app/window/job_pane.h"

#include <wx/button.h>
#include <wx/dialog.h>
#include <wx/rearrangectrl.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

#include <algorithm>

#include "app/window/confirm.h"
#include "app/window/model/translate.h"
#include "app/window/pictures.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

// A title's width in the table of columns is in characters.
constexpr int width_of_character = 8;

// The title of a column where it stands in a dialog or a header: its English is in the model's table.
wxString title_of(Column column) {
    return ui(tr(facts_of(column).title));
}

// The buttons that move what is selected in the list.
wxSizer* make_mover(wxWindow& parent, wxRearrangeList& list) {
    auto* const column = new wxBoxSizer(wxVERTICAL);
    const auto add = [&](const std::string& label, bool (wxRearrangeList::*move)()) {
        auto* const button = new wxButton(&parent, wxID_ANY, ui(label));
        button->Bind(wxEVT_BUTTON, [&list, move](wxCommandEvent&) { (list.*move)(); });
        column->Add(button, wxSizerFlags().Expand().Border(wxBOTTOM, parent.FromDIP(4)));
    };
    add(tr("&Up"), &wxRearrangeList::MoveCurrentUp);
    add(tr("&Down"), &wxRearrangeList::MoveCurrentDown);
    return column;
}

}  // namespace

JobPane::JobPane(wxWindow* parent, WindowModel& model, Events events)
    : wxPanel(parent),
      model_(model),
      events_(std::move(events)),
      columns_(vantlow::Layout::standard().columns) {
    RowTable::Events of_table;
    of_table.selected = [this] { take_selection(); };
    of_table.opened = [this](std::size_t) {
        if (events_.opened) events_.opened();
    };
    of_table.menu = [this](const wxPoint& at) {
        take_selection();  // that of the click which opens the menu may still be on its way
        if (events_.menu) events_.menu(at);
    };
    of_table.header = [this](int column, bool further) { sort_by(static_cast<Column>(column), further); };
    of_table.dragged = [this] { return events_.dragged ? events_.dragged() : wxString(); };
    of_table.drag_ended = [this] {
        if (events_.drag_ended) events_.drag_ended();
    };
    table_ = new RowTable(this, ui(tr("Downloads")), *this, row_signs(), std::move(of_table));
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(table_, wxSizerFlags(1).Expand());
    SetSizer(all);
    model_.rows.on_news([this](const RowNews& news) { take_news(news); });
}

JobPane::~JobPane() {
    model_.rows.on_news({});
}

wxString JobPane::cell(std::size_t row, int column) const {
    return ui(model_.rows.cell(row, static_cast<Column>(column)));
}

int JobPane::picture(std::size_t row) const {
    const auto facts = model_.rows.facts(row);
    return facts ? static_cast<int>(facts->sign()) : 0;
}

void JobPane::put_columns() {
    std::vector<TableColumn> shown;
    for (const vantlow::Layout::ColumnPlace& place : columns_) {
        if (!place.shown) continue;
        const ColumnFacts& facts = facts_of(place.column);
        const int width = place.width > 0 ? place.width : facts.width * width_of_character;
        shown.push_back({static_cast<int>(place.column), title_of(place.column), width, facts.is_number});
    }
    table_->set_columns(shown);
    table_->select(model_.rows.selected_rows());
    show_order();
}

void JobPane::take(const vantlow::Layout& layout) {
    columns_ = layout.columns;
    model_.rows.sort_by(layout.sort);
    put_columns();
}

// Hidden columns keep the place behind the one that they stood behind.
void JobPane::give(vantlow::Layout& layout) const {
    layout.sort = model_.rows.sorted_by();
    layout.columns.clear();
    for (const TableColumn& column : table_->columns())
        layout.columns.push_back({static_cast<Column>(column.id), column.width, true});
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const bool is_there =
            std::any_of(layout.columns.begin(), layout.columns.end(),
                        [&](const auto& place) { return place.column == columns_[i].column; });
        if (is_there) continue;
        const auto at =
            layout.columns.begin() + static_cast<std::ptrdiff_t>(std::min(i, layout.columns.size()));
        layout.columns.insert(at, columns_[i])->shown = false;
    }
}

void JobPane::choose_columns() {
    vantlow::Layout now;
    give(now);
    wxDialog dialog(this, wxID_ANY, ui(tr("Columns")), wxDefaultPosition, wxDefaultSize,
                    wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER);
    wxArrayString titles;
    wxArrayInt order;  // of those that are not shown the complement (-1 of 0)
    for (std::size_t i = 0; i < now.columns.size(); ++i) {
        titles.Add(title_of(now.columns[i].column));
        order.Add(now.columns[i].shown ? static_cast<int>(i) : ~static_cast<int>(i));
    }
    auto* const list =
        new wxRearrangeList(&dialog, wxID_ANY, wxDefaultPosition, wxDefaultSize, order, titles);
    name_for_readers(*list, ui(tr("Columns")));
    list->SetMinSize(FromDIP(wxSize(240, 360)));
    list->SetSelection(0);
    auto* const row = new wxBoxSizer(wxHORIZONTAL);
    row->Add(list, wxSizerFlags(1).Expand());
    row->Add(make_mover(dialog, *list), wxSizerFlags().Border(wxLEFT, FromDIP(8)));
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(new wxStaticText(&dialog, wxID_ANY, ui(tr("The list shows these &columns:"))),
             wxSizerFlags().Border(wxALL, FromDIP(10)));
    all->Add(row, wxSizerFlags(1).Expand().Border(wxLEFT | wxRIGHT, FromDIP(10)));
    all->Add(dialog.CreateSeparatedButtonSizer(wxOK | wxCANCEL),
             wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    finish_dialog(dialog);
    dialog.SetSizerAndFit(all);
    dialog.CentreOnParent();
    if (dialog.ShowModal() != wxID_OK) return;
    std::vector<vantlow::Layout::ColumnPlace> chosen;
    for (const int at : list->GetCurrentOrder()) {
        chosen.push_back(now.columns[static_cast<std::size_t>(at < 0 ? ~at : at)]);
        chosen.back().shown = at >= 0;
    }
    now.columns = std::move(chosen);
    // A list without its first column would show nothing that can be recognised.
    if (std::none_of(now.columns.begin(), now.columns.end(), [](const auto& place) { return place.shown; }))
        now.columns.front().shown = true;
    columns_ = now.columns;
    put_columns();
}

void JobPane::show(const View& view, const wxString& search) {
    is_searching_ = !search.empty();
    model_.rows.show(view, wide_of(search));
    look_at_note();
}

// An empty list says why it is empty.
void JobPane::look_at_note() {
    if (model_.rows.size() > 0) return table_->set_note({});
    const bool is_first = std::ranges::all_of(model_.engine.categories(),
                                              [](const CClassNode* one) { return one->jobs.empty(); });
    table_->set_note(is_first ? ui(tr("Ctrl+N adds a download; links can be pasted or dropped here, too."))
                     : is_searching_ ? ui(tr("No download here holds these words."))
                                     : ui(tr("There are no downloads in this view.")));
}

void JobPane::select(const std::vector<Guid>& jobs) {
    model_.rows.select(jobs);
    const auto rows = model_.rows.selected_rows();
    table_->select(rows);
    if (!rows.empty()) table_->show_row(rows.front());
    if (events_.selected) events_.selected();
}

bool JobPane::shows_queue() const {
    const std::vector<SortKey>& keys = model_.rows.sorted_by();
    return !keys.empty() && keys.front() == SortKey{Column::order, false};
}

Guid JobPane::waiting_from(std::size_t row) const {
    for (; row < model_.rows.size(); ++row) {
        const auto facts = model_.rows.facts(row);
        if (facts && facts->job.state == JobState::waiting) return facts->job.identity;
    }
    return {};
}

void JobPane::take_news(const RowNews& news) {
    look_at_note();
    // New downloads are selected before they have rows: where these come, they are seen. Others stay where
    // they are when the order changes.
    const bool has_moved = news.all || !news.removed.empty() || !news.inserted.empty();
    const bool had_none = has_moved && table_->selection().empty();
    const auto show_new = [this, had_none](const std::vector<std::size_t>& selected) {
        if (had_none && !selected.empty()) table_->show_row(selected.front());
    };
    if (news.all) {
        table_->reset();
        const std::vector<std::size_t> selected = model_.rows.selected_rows();
        table_->select(selected);
        show_new(selected);
        if (events_.selected) events_.selected();
        return;
    }
    constexpr std::size_t most_single = 200;
    if (!news.removed.empty() || !news.inserted.empty()) {
        if (news.removed.size() + news.inserted.size() > most_single) {
            table_->reset();
        } else {
            table_->remove_and_insert(news.removed, news.inserted);
        }
        const std::vector<std::size_t> selected = model_.rows.selected_rows();
        table_->select(selected);
        show_new(selected);
        const bool is_selected = std::ranges::any_of(news.inserted, [&selected](std::size_t row) {
            return std::ranges::binary_search(selected, row);
        });
        const bool is_news = is_selected || !news.removed.empty();
        if (is_news && selected.size() <= most_followed && events_.selected) events_.selected();
    }
    if (news.places) return table_->redraw();
    if (!news.changed.empty()) table_->redraw(news.changed);
}

void JobPane::take_selection() {
    std::vector<Guid> jobs;
    for (const std::size_t row : table_->selection()) {
        if (row < model_.rows.size()) jobs.push_back(model_.rows.at(row));
    }
    model_.rows.select(jobs);
    if (events_.selected) events_.selected();
}

// A click sorts by that column, a second one the other way round; with Shift held it is a further key.
void JobPane::sort_by(Column column, bool further) {
    std::vector<SortKey> keys = further ? model_.rows.sorted_by() : std::vector<SortKey>();
    const std::vector<SortKey>& before = model_.rows.sorted_by();
    const auto same = [column](const SortKey& key) { return key.column == column; };
    const auto known = std::find_if(before.begin(), before.end(), same);
    const bool was_first = known != before.end() && (further || known == before.begin());
    SortKey key{column, was_first && !known->descending};
    const auto at = std::find_if(keys.begin(), keys.end(), same);
    if (at != keys.end()) {
        *at = key;
    } else {
        keys.push_back(key);
    }
    model_.rows.sort_by(std::move(keys));
    show_order();
}

void JobPane::show_order() {
    table_->clear_order();
    for (const SortKey& key : model_.rows.sorted_by())
        table_->show_order(static_cast<int>(key.column), key.descending);
}

}  // namespace vantlow
