#include "app/window/torrent_pages.h"

#include <wx/menu.h>
#include <wx/sizer.h>
#include <wx/textdlg.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <utility>

#include "app/window/confirm.h"
#include "app/window/endings_menu.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::size_t most_single_rows = 200;

enum Item : int {
    // Beyond the commands: the main window hears of this menu, too.
    item_first = wxID_HIGHEST + 4000,
    item_sequential = item_first + 10,
    item_ends_first,
    item_add,
    item_remove,
    item_all,
    item_only,
    item_ending_first
};

}  // namespace

TorrentRows::TorrentRows(wxWindow& parent, TorrentList list, const WindowModel& model,
                         std::function<void()> changed)
    : list_(list), model_(model), changed_(std::move(changed)) {
    RowTable::Events events;
    if (list == TorrentList::files) {
        events.menu = [this](const wxPoint& at) { pop_up_files(at); };
        events.checked = [this](std::size_t row, bool is_wanted) {
            want({row}, is_wanted ? FilePriority::normal : FilePriority::skip);
        };
        events.opened = [this](std::size_t row) {
            want({row}, is_checked(row) ? FilePriority::skip : FilePriority::normal);
        };
    }
    if (list == TorrentList::trackers) events.menu = [this](const wxPoint& at) { pop_up_trackers(at); };
    table_ = new RowTable(&parent, title(), *this, {}, std::move(events));
    std::vector<TableColumn> columns;
    for (const TorrentColumn& column : list_.columns())
        columns.push_back(
            {static_cast<int>(columns.size()), ui(tr(column.title)), column.width, column.is_number});
    table_->set_columns(columns);
}

bool TorrentRows::is_checked(std::size_t row) const {
    return list_.priority(row) != FilePriority::skip;
}

void TorrentRows::pop_up_files(const wxPoint& at) {
    const std::vector<std::size_t> rows = table_->selection();
    wxMenu menu;
    for (const FilePriority priority :
         {FilePriority::high, FilePriority::normal, FilePriority::low, FilePriority::skip}) {
        const int id = item_first + static_cast<int>(priority);
        menu.AppendRadioItem(id, as_label(text_of(priority)))->Enable(!rows.empty());
        if (!rows.empty() && list_.priority(rows.front()) == priority) menu.Check(id, true);
    }
    menu.AppendSeparator();
    menu.Append(item_all, ui(tr("&Choose all")))->Enable(list_.rows() > 0);
    menu.Append(item_only, ui(tr("Choose only the &selected ones")))->Enable(!rows.empty());
    const EndingsMenu endings(list_.names(), item_ending_first,
                              [this](std::size_t row) { return is_checked(row); });
    auto* const of_endings = new wxMenu;
    endings.append_to(*of_endings);
    menu.AppendSubMenu(of_endings, ui(tr("&By ending")))->Enable(!endings.empty());
    menu.AppendSeparator();
    menu.AppendCheckItem(item_sequential, ui(tr("Pieces in their &order")))->Check(is_sequential_);
    menu.AppendCheckItem(item_ends_first, ui(tr("Ends of files &first")))->Check(has_ends_first_);
    const int chosen = table_->GetPopupMenuSelectionFromUser(menu, place_of_menu(*table_, at));
    if (chosen >= item_first && chosen < item_sequential)
        return want(rows, static_cast<FilePriority>(chosen - item_first));
    if (chosen == item_all) return choose(all_rows(), {});
    if (chosen == item_only) return choose(rows, all_rows());
    if (const auto turn = endings.turn(chosen))
        return turn->chosen ? choose(turn->files, {}) : choose({}, turn->files);
    JobEdit edit;
    if (chosen == item_sequential) edit.sequential = !is_sequential_;
    if (chosen == item_ends_first) edit.ends_first = !has_ends_first_;
    if (edit.sequential || edit.ends_first) end(model_.engine.change(job_, edit));
}

void TorrentRows::want(const std::vector<std::size_t>& rows, FilePriority priority) {
    std::map<std::size_t, FilePriority> wanted;
    for (const std::size_t row : rows) wanted[row + 1] = priority;
    if (!wanted.empty()) end(model_.engine.choose_files(job_, wanted));
}

std::vector<std::size_t> TorrentRows::all_rows() const {
    std::vector<std::size_t> all(list_.rows());
    std::iota(all.begin(), all.end(), std::size_t{0});
    return all;
}

// Files that are in both stay; one that is wanted more or less than usual keeps its priority.
void TorrentRows::choose(const std::vector<std::size_t>& in, const std::vector<std::size_t>& out) {
    std::map<std::size_t, FilePriority> wanted;
    for (const std::size_t row : out) wanted[row + 1] = FilePriority::skip;
    for (const std::size_t row : in)
        wanted[row + 1] = is_checked(row) ? list_.priority(row) : FilePriority::normal;
    if (!wanted.empty()) end(model_.engine.choose_files(job_, wanted));
}

void TorrentRows::pop_up_trackers(const wxPoint& at) {
    const std::vector<std::size_t> rows = table_->selection();
    wxMenu menu;
    menu.Append(item_add, ui(tr("&Add trackers...")));
    // Behind the job's own are those of a list, which names them for all torrents.
    const std::size_t own = model_.engine.trackers(job_).size();
    const bool is_own = std::ranges::any_of(rows, [own](std::size_t row) { return row < own; });
    menu.Append(item_remove, ui(tr("&Remove")))->Enable(is_own);
    const int chosen = table_->GetPopupMenuSelectionFromUser(menu, place_of_menu(*table_, at));
    if (chosen == item_add) add_trackers();
    if (chosen == item_remove) remove_trackers(rows);
}

void TorrentRows::add_trackers() {
    const Guid job = job_;
    wxTextEntryDialog dialog(table_, ui(tr("Addresses of trackers, one in each line:")), ui(tr("Trackers")),
                             wxString(), wxOK | wxCANCEL | wxCENTRE | wxTE_MULTILINE);
    finish_dialog(dialog);
    if (dialog.ShowModal() != wxID_OK) return;
    std::vector<std::string> trackers = model_.engine.trackers(job);
    const std::string text = utf8_of(dialog.GetValue());
    for (const std::string_view line : split(text, '\n')) {
        if (!trim(line).empty()) trackers.emplace_back(trim(line));
    }
    end(model_.engine.set_trackers(job, trackers));
}

// The rows stand in the order of the job's trackers.
void TorrentRows::remove_trackers(const std::vector<std::size_t>& rows) {
    std::vector<std::string> trackers = model_.engine.trackers(job_);
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
        if (*row < trackers.size()) trackers.erase(trackers.begin() + static_cast<std::ptrdiff_t>(*row));
    }
    end(model_.engine.set_trackers(job_, trackers));
}

void TorrentRows::end(const Done& done) {
    if (!done.ok()) tell(*table_, title(), ui(sentence_of(done)));
    table_->CallAfter([changed = changed_] { changed(); });
}

wxString TorrentRows::cell(std::size_t row, int column) const {
    return ui(list_.cell(row, column));
}

wxString TorrentRows::title() const {
    return ui(list_.title());
}

void TorrentRows::take(const Guid& job, TorrentReport report, Clock::time_point now) {
    job_ = job;
    is_sequential_ = report.is_sequential;
    has_ends_first_ = report.has_ends_first;
    const TorrentTable::News news = list_.take(std::move(report), now);
    table_->set_note(ui(list_.note()));
    if (news.is_other || news.removed.size() + news.inserted.size() > most_single_rows)
        return table_->reset();
    if (!news.removed.empty() || !news.inserted.empty())
        table_->remove_and_insert(news.removed, news.inserted);
    table_->redraw();
}

TorrentPieces::TorrentPieces(wxWindow* parent)
    : wxPanel(parent),
      picture_(new PiecePicture(this)),
      sentence_(new wxStaticText(this, wxID_ANY, wxString())) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(picture_, wxSizerFlags(1).Expand());
    all->Add(sentence_, wxSizerFlags().Expand().Border(wxALL, FromDIP(4)));
    SetSizer(all);
}

void TorrentPieces::show(const TorrentReport& report) {
    const wxString sentence = ui(piece_sentence(report));
    auto ranges = piece_ranges(report);
    // Without pieces the sentence stands in the picture's place.
    if (sentence_->IsShown() == ranges.empty()) {
        sentence_->Show(!ranges.empty());
        Layout();
    }
    picture_->show(std::move(ranges), sentence);
    if (sentence_->GetLabel() == sentence) return;
    sentence_->SetLabel(sentence);
    name_for_readers(*picture_, sentence);
}

}  // namespace vantlow
