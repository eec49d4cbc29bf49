#include "app/window/file_choice.h"

#include <wx/arrstr.h>
#include <wx/button.h>
#include <wx/checklst.h>
#include <wx/menu.h>
#include <wx/sizer.h>

#include <algorithm>
#include <numeric>

#include "app/window/endings_menu.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

constexpr int first_item = wxID_HIGHEST + 5000;  // beyond the commands of the main window

}  // namespace

FileChoice::FileChoice(wxWindow* parent) : wxPanel(parent), list_(new wxCheckListBox(this, wxID_ANY)) {
    name_for_readers(*list_, ui(tr("Files")));
    list_->SetMinSize(FromDIP(wxSize(460, 140)));
    auto* const row = new wxBoxSizer(wxHORIZONTAL);
    const auto add = [this, row](const std::string& label, auto pressed) {
        auto* const button = new wxButton(this, wxID_ANY, ui(label));
        button->Bind(wxEVT_BUTTON, [pressed](wxCommandEvent&) { pressed(); });
        row->Add(button, wxSizerFlags().Border(wxRIGHT, FromDIP(6)));
    };
    add(tr("&Choose all"), [this] { choose_all(true); });
    add(tr("Choose none"), [this] { choose_all(false); });
    add(tr("&By ending..."), [this] { pop_up_endings(); });
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(list_, wxSizerFlags(1).Expand());
    all->Add(row, wxSizerFlags().Border(wxTOP, FromDIP(6)));
    SetSizer(all);
}

void FileChoice::set_files(const std::vector<File>& files) {
    names_.clear();
    std::vector<wxString> shown_names;
    for (const File& file : files) {
        names_.push_back(file.name);
        shown_names.push_back(ui(shown(file.name)));
    }
    rows_.resize(files.size());
    std::iota(rows_.begin(), rows_.end(), std::size_t{0});
    // "2" stands before "10"; a torrent's own order may be any.
    std::ranges::stable_sort(rows_, [&shown_names](std::size_t a, std::size_t b) {
        return wxCmpNaturalGeneric(shown_names[a], shown_names[b]) < 0;
    });
    wxArrayString lines;
    for (const std::size_t file : rows_) {
        wxString line = shown_names[file];
        if (files[file].size >= 0) line += " (" + ui(size_text(files[file].size)) + ")";
        lines.Add(line);
    }
    list_->Set(lines);
    for (unsigned row = 0; row < list_->GetCount(); ++row) list_->Check(row, files[rows_[row]].is_chosen);
}

std::vector<bool> FileChoice::chosen() const {
    std::vector<bool> chosen(rows_.size());
    for (unsigned row = 0; row < list_->GetCount(); ++row) chosen[rows_[row]] = list_->IsChecked(row);
    return chosen;
}

void FileChoice::choose(const std::vector<std::size_t>& files, bool chosen) {
    for (unsigned row = 0; row < list_->GetCount(); ++row) {
        if (std::ranges::binary_search(files, rows_[row])) list_->Check(row, chosen);
    }
    wxCommandEvent event(wxEVT_CHECKLISTBOX, list_->GetId());
    event.SetEventObject(list_);
    ProcessWindowEvent(event);
}

void FileChoice::choose_all(bool chosen) {
    std::vector<std::size_t> files(names_.size());
    std::iota(files.begin(), files.end(), std::size_t{0});
    choose(files, chosen);
}

void FileChoice::pop_up_endings() {
    const EndingsMenu endings(names_, first_item,
                              [now = chosen()](std::size_t file) -> bool { return now[file]; });
    wxMenu menu;
    endings.append_to(menu);
    if (endings.empty()) menu.Append(wxID_ANY, ui(tr("No file has an ending.")))->Enable(false);
    if (const auto turn = endings.turn(GetPopupMenuSelectionFromUser(menu)))
        choose(turn->files, turn->chosen);
}

}  // namespace vantlow
