#include "app/window/detail_tabs.h"

#include <wx/clipbrd.h>
#include <wx/settings.h>
#include <wx/sizer.h>
#include <wx/splitter.h>

#include <algorithm>

#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

wxString& last_copied() {
    static wxString text;
    return text;
}

enum ConnectionColumn { number_column, server_column, speed_column, state_column, range_column };
enum DetailColumn { label_column, value_column };

wxString range_text(const ConnectionLine& line) {
    if (line.start == 0 && line.end == 0) return {};
    const wxString end = line.end == unknown_end ? wxString("?") : ui(size_text(line.end));
    return ui(size_text(line.start)) + L" \u2013 " + end;
}

}  // namespace

void copy_text(const wxString& text) {
    if (!wxTheClipboard->Open()) return;
    last_copied() = text;
    wxTheClipboard->SetData(new wxTextDataObject(text));
    wxTheClipboard->Close();
}

const wxString& copied_text() noexcept {
    return last_copied();
}

class DetailTabs::Connections : public RowSource {
  public:
    explicit Connections(const JobDetails& details) : details_(details) {}
    [[nodiscard]] std::size_t rows() const override { return details_.connections().size(); }
    [[nodiscard]] wxString cell(std::size_t row, int column) const override {
        const ConnectionLine& line = details_.connections()[row];
        switch (column) {
            case number_column:
                return line.number > 0 ? wxString::Format("%d", line.number) : wxString();
            case server_column:
                return ui(line.server);
            case speed_column:
                return ui(speed_text(line.speed));
            case state_column:
                return ui(line.state);
            default:
                return range_text(line);
        }
    }

  private:
    const JobDetails& details_;
};

/// The lines of the log that hold the searched text.
class DetailTabs::Log : public RowSource {
  public:
    explicit Log(const JobDetails& details) : details_(details) {}
    [[nodiscard]] std::size_t rows() const override {
        return is_filtered_ ? found_.size() : details_.log().size();
    }
    [[nodiscard]] wxString cell(std::size_t row, int /*column*/) const override {
        return ui(JobDetails::log_text_of(line(row)));
    }
    [[nodiscard]] wxColour ink(std::size_t row) const override {
        const bool dark = wxSystemSettings::GetAppearance().IsDark();
        switch (line(row).direction) {
            case Direction::sent:
                return dark ? wxColour(120, 170, 255) : wxColour(20, 70, 170);
            case Direction::received:
                return dark ? wxColour(120, 210, 130) : wxColour(20, 110, 45);
            case Direction::error:
                return dark ? wxColour(255, 130, 120) : wxColour(180, 30, 20);
            case Direction::note:
                break;
        }
        return {};
    }
    /// True when other rows are shown than before.
    bool look(const std::string& searched) {
        const bool same =
            searched == searched_ && revision_ == details_.log_revision() && begins_ == details_.log_begins();
        if (same) return false;
        searched_ = searched;
        revision_ = details_.log_revision();
        begins_ = details_.log_begins();
        is_filtered_ = !searched.empty();
        found_ = is_filtered_ ? details_.find_in_log(searched) : std::vector<std::size_t>();
        return true;
    }

  private:
    [[nodiscard]] const CLogNode& line(std::size_t row) const {
        return details_.log()[is_filtered_ ? found_[row] : row];
    }
    const JobDetails& details_;
    std::string searched_;
    std::uint64_t revision_ = 0;
    std::uint64_t begins_ = 0;
    bool is_filtered_ = false;
    std::vector<std::size_t> found_;
};

class DetailTabs::Lines : public RowSource {
  public:
    [[nodiscard]] std::size_t rows() const override { return lines_.size(); }
    [[nodiscard]] wxString cell(std::size_t row, int column) const override {
        return ui(column == label_column ? lines_[row].label : lines_[row].value);
    }
    /// The change that a new reading makes to the table: none, another drawing, or all anew.
    enum class News { none, values, all };
    News take(std::vector<DetailLine> lines) {
        if (lines == lines_) return News::none;
        const News news = lines.size() == lines_.size() ? News::values : News::all;
        lines_ = std::move(lines);
        return news;
    }

  private:
    std::vector<DetailLine> lines_;
};

DetailTabs::DetailTabs(wxWindow* parent, WindowModel& model)
    : wxNotebook(parent, wxID_ANY),
      model_(model),
      details_(model.details),
      lines_(std::make_unique<Lines>()),
      connections_(std::make_unique<Connections>(details_)),
      log_(std::make_unique<Log>(details_)) {
    SetName(ui(tr("Details of the download")));
    build_segments();
    build_log();
    build_details();
    Bind(wxEVT_NOTEBOOK_PAGE_CHANGED, [this](wxBookCtrlEvent& event) {
        event.Skip();
        look();
    });
}

// The tables read from members of this object, and go first.
DetailTabs::~DetailTabs() {
    DeleteAllPages();
}

void DetailTabs::build_segments() {
    auto* const page =
        new wxSplitterWindow(this, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxSP_LIVE_UPDATE);
    picture_ = new SegmentPicture(page, details_);
    connection_table_ = new RowTable(page, ui(tr("Connections")), *connections_);
    connection_table_->set_columns({{number_column, ui(tr("No.")), 50, true},
                                    {server_column, ui(tr("Server")), 200, false},
                                    {speed_column, ui(tr("Speed")), 90, true},
                                    {state_column, ui(tr("State")), 220, false},
                                    {range_column, ui(tr("Range")), 180, false}});
    page->SetMinimumPaneSize(FromDIP(80));
    page->SetSashGravity(0.4);
    page->SplitVertically(picture_, connection_table_, FromDIP(200));
    AddPage(page, ui(tr("Segments")));
}

void DetailTabs::build_log() {
    auto* const page = new wxPanel(this);
    log_search_ = new wxSearchCtrl(page, wxID_ANY);
    log_search_->SetDescriptiveText(ui(tr("Search the log")));
    log_search_->SetName(ui(tr("Search the log")));
    log_search_->ShowCancelButton(true);
    log_search_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { search_log(); });
    RowTable::Events events;
    log_table_ = new RowTable(page, ui(tr("Log")), *log_, {}, std::move(events));
    log_table_->set_columns({{0, ui(tr("Line")), 900, false}});
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(log_search_, wxSizerFlags().Expand().Border(wxALL, FromDIP(3)));
    all->Add(log_table_, wxSizerFlags(1).Expand());
    page->SetSizer(all);
    AddPage(page, ui(tr("Log")));
}

void DetailTabs::build_details() {
    detail_table_ = new RowTable(this, ui(tr("Details")), *lines_);
    detail_table_->set_columns(
        {{label_column, ui(tr("Property")), 180, false}, {value_column, ui(tr("Value")), 560, false}});
    AddPage(detail_table_, ui(tr("Details")));
}

void DetailTabs::show(const Guid& job) {
    details_.show(job);
    look();
}

// Only the page that is seen is read, and only where it can have changed.
void DetailTabs::look() {
    if (!IsShownOnScreen()) return;
    const int page = GetSelection();
    const bool rests = model_.live.find(details_.job()) == nullptr &&
                       revision_seen_ == model_.engine.revision() && job_seen_ == details_.job() &&
                       page_seen_ == page;
    if (rests) return;
    revision_seen_ = model_.engine.revision();
    page_seen_ = page;
    if (page == 0) {
        const std::size_t before = connections_->rows();
        details_.look(std::chrono::steady_clock::now());
        picture_->Refresh();
        if (before == connections_->rows() && job_seen_ == details_.job()) {
            connection_table_->redraw();
        } else {
            connection_table_->reset();
        }
    } else if (page == 1) {
        search_log();
    } else if (page == 2) {
        const Lines::News news = lines_->take(details_.lines());
        if (news == Lines::News::all) detail_table_->reset();
        if (news == Lines::News::values) detail_table_->redraw();
    }
    job_seen_ = details_.job();
}

// New lines come into sight while the last one is; whoever has selected a line reads on undisturbed.
void DetailTabs::search_log() {
    const std::size_t before = log_->rows();
    const bool follows = log_table_->selection().empty();
    const std::vector<std::size_t> selection = log_table_->selection();
    const std::uint64_t begins = details_.log_begins();
    if (!log_->look(utf8_of(log_search_->GetValue()))) return;
    log_table_->reset();
    if (follows && log_->rows() > 0) log_table_->show_row(log_->rows() - 1);
    if (!follows && before <= log_->rows() && begins == details_.log_begins()) log_table_->select(selection);
}

bool DetailTabs::copy() {
    RowTable* const tables[] = {connection_table_, log_table_, detail_table_};
    const RowSource* const sources[] = {connections_.get(), log_.get(), lines_.get()};
    const int page = GetSelection();
    if (page < 0 || page > 2) return false;
    wxString text;
    for (const std::size_t row : tables[page]->selection()) {
        if (row >= sources[page]->rows()) continue;
        if (!text.empty()) text += "\n";
        text += sources[page]->cell(row, page == 0 ? server_column : page == 2 ? value_column : 0);
    }
    if (text.empty()) return false;
    copy_text(text);
    return true;
}

}  // namespace vantlow
