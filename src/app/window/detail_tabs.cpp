#include "app/window/detail_tabs.h"

#include <wx/clipbrd.h>
#include <wx/settings.h>
#include <wx/sizer.h>
#include <wx/splitter.h>
#include <wx/wupdlock.h>

#include <algorithm>
#include <utility>

#include "app/window/confirm.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "engine/kinds.h"

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
        static const CLogNode none;
        const std::size_t at = !is_filtered_         ? row
                               : row < found_.size() ? found_[row]
                                                     : details_.log().size();
        // Another download's log may have taken its place since the last look().
        return at < details_.log().size() ? details_.log()[at] : none;
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
    name_for_readers(*this, ui(tr("Details of the download")));
    build_segments();
    build_torrent();
    build_log();
    build_details();
    for (const Page& page : pages_) page.window->Hide();
    arrange(false);
    Bind(wxEVT_NOTEBOOK_PAGE_CHANGED, [this](wxBookCtrlEvent& event) {
        event.Skip();
        if (arranging_) return;
        if (const Page* const page = seen()) wanted_ = page->tab;
        look();
    });
}

// The tables read from members of this object, and go first.
DetailTabs::~DetailTabs() {
    DeleteAllPages();
    DestroyChildren();
}

void DetailTabs::build_segments() {
    auto* const page =
        new wxSplitterWindow(this, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxSP_LIVE_UPDATE);
    picture_ = new SegmentPicture(page, details_);
    connection_table_ = new RowTable(page, ui(tr("Connections")), *connections_);
    connection_table_->set_columns({{number_column, ui(tr("No.")), 40, true},
                                    {server_column, ui(tr("Server")), 130, false},
                                    {speed_column, ui(tr("Speed")), 80, true},
                                    {state_column, ui(tr("State")), 120, false},
                                    {range_column, ui(tr("Range")), 150, false}});
    page->SetMinimumPaneSize(FromDIP(80));
    page->SetSashGravity(0.4);
    page->SplitVertically(picture_, connection_table_, FromDIP(200));
    // Its true size is not known before it is seen; from then on the user's own place stays.
    page->Bind(wxEVT_SIZE, [page, placed = false](wxSizeEvent& event) mutable {
        event.Skip();
        const int width = event.GetSize().x;
        if (placed || width < page->FromDIP(300)) return;
        placed = true;
        // Behind the splitter's own answer to the new size, which moves the place along.
        page->CallAfter([page] { page->SetSashPosition(page->GetSize().x * 2 / 5); });
    });
    pages_.push_back({Tab::segments, page, ui(tr("Segments")), connection_table_, connections_.get(),
                      server_column, Page::Kind::others});
}

void DetailTabs::build_torrent() {
    pieces_ = new TorrentPieces(this);
    pages_.push_back({Tab::pieces, pieces_, ui(tr("Pieces")), nullptr, nullptr, 0, Page::Kind::torrents});
    constexpr std::pair<Tab, TorrentList> lists[] = {{Tab::files, TorrentList::files},
                                                     {Tab::peers, TorrentList::peers},
                                                     {Tab::trackers, TorrentList::trackers}};
    for (const auto& [tab, list] : lists) {
        TorrentRows& rows =
            *torrent_rows_.emplace_back(std::make_unique<TorrentRows>(*this, list, model_, [this] {
                next_report_ = {};
                look();
            }));
        pages_.push_back({tab, &rows.table(), rows.title(), &rows.table(), &rows, 0, Page::Kind::torrents});
    }
}

void DetailTabs::build_log() {
    auto* const page = new wxPanel(this);
    log_search_ =
        make_search(*page, ui(tr("Search the log")), ui(tr("Search the log")), [this] { search_log(); });
    RowTable::Events events;
    log_table_ = new RowTable(page, ui(tr("Log")), *log_, {}, std::move(events));
    log_table_->set_columns({{0, ui(tr("Line")), 900, false}});
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(log_search_, wxSizerFlags().Expand().Border(wxALL, FromDIP(3)));
    all->Add(log_table_, wxSizerFlags(1).Expand());
    page->SetSizer(all);
    pages_.push_back({Tab::log, page, ui(tr("Log")), log_table_, log_.get(), 0, Page::Kind::all});
}

void DetailTabs::build_details() {
    detail_table_ = new RowTable(this, ui(tr("Details")), *lines_);
    detail_table_->set_columns(
        {{label_column, ui(tr("Property")), 180, false}, {value_column, ui(tr("Value")), 560, false}});
    pages_.push_back({Tab::details, detail_table_, ui(tr("Details")), detail_table_, lines_.get(),
                      value_column, Page::Kind::all});
}

// The tab that was chosen last is seen wherever the download has it, else the first one. Pages that come and
// go take the focus along: whoever walks through the list keeps it.
void DetailTabs::arrange(bool is_torrent) {
    wxWindow* const focused = FindFocus();
    const wxWindowUpdateLocker unseen(this);  // tabs that are drawn before they have a place have no size
    arranging_ = true;
    std::size_t at = 0;
    std::size_t chosen = 0;
    for (const Page& page : pages_) {
        const bool is_shown = at < GetPageCount() && GetPage(at) == page.window;
        const bool is_wanted =
            page.kind == Page::Kind::all || (page.kind == Page::Kind::torrents) == is_torrent;
        if (is_shown && !is_wanted) RemovePage(at);
        if (is_shown != is_wanted) page.window->Show(is_wanted);
        if (!is_wanted) continue;
        if (!is_shown) InsertPage(at, page.window, page.title);
        if (page.tab == wanted_) chosen = at;
        ++at;
    }
    SetSelection(chosen);
    arranging_ = false;
    if (focused != nullptr && !IsDescendant(focused)) focused->SetFocus();
}

const DetailTabs::Page* DetailTabs::seen() const {
    const wxWindow* const window = GetCurrentPage();
    const auto at = std::ranges::find(pages_, window, &Page::window);
    return at != pages_.end() ? &*at : nullptr;
}

void DetailTabs::show(const Guid& job) {
    details_.show(job);
    const CJobNode* const record = model_.engine.find(job);
    const bool is_torrent = record != nullptr && kind_of(*record) == JobKind::torrent;
    if (is_torrent != shows_torrent_) arrange(is_torrent);
    shows_torrent_ = is_torrent;
    look();
}

// Only the page that is seen is read, and only where it can have changed.
void DetailTabs::look() {
    const Page* const page = seen();
    if (page == nullptr || !IsShownOnScreen()) return;
    const bool is_other = job_seen_ != details_.job() || tab_seen_ != page->tab;
    const bool rests =
        page->kind == Page::Kind::torrents ? torrent_rests_ : model_.live.find(details_.job()) == nullptr;
    if (!is_other && rests && revision_seen_ == model_.engine.revision()) return;
    if (page->kind == Page::Kind::torrents && !look_at_torrent(*page, is_other)) return;
    revision_seen_ = model_.engine.revision();
    tab_seen_ = page->tab;
    job_seen_ = details_.job();
    if (page->tab == Tab::segments) look_at_segments(is_other);
    if (page->tab == Tab::log) search_log();
    if (page->tab == Tab::details) {
        const Lines::News news = lines_->take(details_.lines());
        detail_table_->set_note(lines_->rows() == 0 ? ui(tr("No download is selected.")) : wxString());
        if (news == Lines::News::all) detail_table_->reset();
        if (news == Lines::News::values) detail_table_->redraw();
    }
}

void DetailTabs::look_at_segments(bool is_other) {
    const std::size_t before = connections_->rows();
    details_.look(std::chrono::steady_clock::now());
    connection_table_->set_note(ui(details_.connections_note()));
    picture_->Refresh();
    if (before == connections_->rows() && !is_other) {
        connection_table_->redraw();
    } else {
        connection_table_->reset();
    }
}

// A report is made for whoever asks: once a second is enough. False where it is not time for one.
bool DetailTabs::look_at_torrent(const Page& page, bool is_other) {
    const auto now = Clock::now();
    if (!is_other && now < next_report_) return false;
    next_report_ = now + std::chrono::seconds(1);
    const auto list = std::ranges::find(torrent_rows_, page.source, &std::unique_ptr<TorrentRows>::get);
    const bool is_list = list != torrent_rows_.end();
    const unsigned part = is_list ? (*list)->part() : torrent_part::pieces;
    auto report = model_.engine.torrent_report(details_.job(), part).value_or(TorrentReport());
    torrent_rests_ = report.phase == TorrentReport::Phase::idle;
    if (is_list) {
        (*list)->take(details_.job(), std::move(report), now);
    } else {
        pieces_->show(report);
    }
    return true;
}

// New lines come into sight while the last one is; whoever has selected a line reads on undisturbed.
void DetailTabs::search_log() {
    const std::size_t before = log_->rows();
    const bool follows = log_table_->selection().empty();
    const std::vector<std::size_t> selection = log_table_->selection();
    const std::uint64_t begins = details_.log_begins();
    const bool is_other = log_->look(utf8_of(log_search_->GetValue()));
    const bool is_searched = !log_search_->GetValue().empty();
    log_table_->set_note(log_->rows() > 0 ? wxString() : ui(details_.log_note(is_searched)));
    if (!is_other) return;
    log_table_->reset();
    if (follows && log_->rows() > 0) log_table_->show_row(log_->rows() - 1);
    if (!follows && before <= log_->rows() && begins == details_.log_begins()) log_table_->select(selection);
}

bool DetailTabs::copy() {
    const Page* const page = seen();
    if (page == nullptr || page->table == nullptr) return false;
    wxString text;
    for (const std::size_t row : page->table->selection()) {
        if (row >= page->source->rows()) continue;
        if (!text.empty()) text += "\n";
        text += page->source->cell(row, page->copied);
    }
    if (text.empty()) return false;
    copy_text(text);
    return true;
}

}  // namespace vantlow
