#include "app/window/torrent_pages.h"

#include <wx/sizer.h>

#include <utility>

#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

constexpr std::size_t most_single_rows = 200;

}  // namespace

TorrentRows::TorrentRows(wxWindow& parent, TorrentList list) : list_(list) {
    table_ = new RowTable(&parent, title(), *this);
    std::vector<TableColumn> columns;
    for (const TorrentColumn& column : list_.columns())
        columns.push_back(
            {static_cast<int>(columns.size()), ui(tr(column.title)), column.width, column.is_number});
    table_->set_columns(columns);
}

wxString TorrentRows::cell(std::size_t row, int column) const {
    return ui(list_.cell(row, column));
}

wxString TorrentRows::title() const {
    return ui(list_.title());
}

void TorrentRows::take(TorrentReport report, Clock::time_point now) {
    const TorrentTable::News news = list_.take(std::move(report), now);
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
