#include "app/window/file_choice.h"

#include <wx/button.h>
#include <wx/checklst.h>
#include <wx/menu.h>
#include <wx/sizer.h>

#include <algorithm>
#include <numeric>

#include "app/window/model/file_endings.h"
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
    wxArrayString lines;
    for (const File& file : files) {
        names_.push_back(file.name);
        wxString line = ui(shown(file.name));
        if (file.size >= 0) line += " (" + ui(size_text(file.size)) + ")";
        lines.Add(line);
    }
    list_->Set(lines);
    for (unsigned i = 0; i < list_->GetCount(); ++i) list_->Check(i, files[i].is_chosen);
}

std::vector<bool> FileChoice::chosen() const {
    std::vector<bool> chosen(list_->GetCount());
    for (unsigned i = 0; i < list_->GetCount(); ++i) chosen[i] = list_->IsChecked(i);
    return chosen;
}

void FileChoice::choose(const std::vector<std::size_t>& files, bool chosen) {
    for (const std::size_t file : files) list_->Check(static_cast<unsigned>(file), chosen);
    wxCommandEvent event(wxEVT_CHECKLISTBOX, list_->GetId());
    event.SetEventObject(list_);
    ProcessWindowEvent(event);
}

void FileChoice::choose_all(bool chosen) {
    std::vector<std::size_t> files(names_.size());
    std::iota(files.begin(), files.end(), std::size_t{0});
    choose(files, chosen);
}

// An ending has a mark where all of its files are chosen; a click turns them all.
void FileChoice::pop_up_endings() {
    const std::vector<EndingGroup> groups = group_by_ending(names_);
    const std::vector<bool> now = chosen();
    const auto is_chosen = [&now](std::size_t file) { return now[file]; };
    wxMenu menu;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        const int id = first_item + static_cast<int>(i);
        menu.AppendCheckItem(id, as_label(label_of(groups[i])))
            ->Check(std::ranges::all_of(groups[i].files, is_chosen));
    }
    if (groups.empty()) menu.Append(wxID_ANY, ui(tr("No file has an ending.")))->Enable(false);
    const int picked = GetPopupMenuSelectionFromUser(menu) - first_item;
    if (picked < 0 || static_cast<std::size_t>(picked) >= groups.size()) return;
    const EndingGroup& group = groups[static_cast<std::size_t>(picked)];
    choose(group.files, !std::ranges::all_of(group.files, is_chosen));
}

}  // namespace vantlow
