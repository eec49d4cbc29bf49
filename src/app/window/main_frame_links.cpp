// The ways of links and jobs into the main window, and of its jobs out of it: dialogs, drops, the clipboard.
#include <wx/dataobj.h>
#include <wx/dnd.h>

#include <algorithm>

#include "app/window/combine_dialog.h"
#include "app/window/main_frame.h"
#include "app/window/model/translate.h"
#include "app/window/new_job_dialog.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

bool is_film(std::u16string_view path) {
    constexpr std::u16string_view endings[] = {u".flv", u".f4v", u".mp4", u".m4v", u".m4a"};
    return std::ranges::any_of(endings, [path](std::u16string_view ending) {
        return path.size() > ending.size() && iequals(path.substr(path.size() - ending.size()), ending);
    });
}

}  // namespace

// Dragged addresses are text for other programs; onto a category of ours they move the jobs.
void MainFrame::drag_jobs() {
    wxString text;
    const auto jobs = model_.rows.selected();
    for (const Guid& id : jobs) {
        const CJobNode* const job = model_.engine.find(id);
        if (job != nullptr) text += ui(to_utf8(job->address)) + "\n";
    }
    if (text.empty()) return;
    wxTextDataObject data(text);
    wxDropSource source(data, this);
    dragged_ = jobs;
    source.DoDragDrop(wxDrag_CopyOnly);
    // The drop itself arrives behind this, when the loop runs again.
    CallAfter([this] { CallAfter([this] { dragged_.clear(); }); });
}

void MainFrame::new_jobs(const std::string& text) {
    std::string links = text;
    if (links.empty()) {
        for (const std::string& link : read_clipboard().links) links += link + "\n";
    }
    NewJobDialog dialog(*this, model_,
                        model_.new_jobs.form_of(links, model_.tree.chosen_category(views_->view())));
    const int ended = dialog.ShowModal();
    if (ending_ || ended == wxID_CANCEL) return;
    if (ended == NewJobDialog::show_known) return show_job(dialog.known_job());
    if (ended == NewJobDialog::open_known) return actions_.open(dialog.known_job());
    if (ended == NewJobDialog::add_mirrors)
        return actions_.add_mirrors(dialog.known_job(), dialog.other_links());
    const auto added = actions_.add(dialog.draft());
    host_.turn();
    if (!added.empty()) jobs_->select(added);
}

// Shows the view that has all jobs, with this one selected.
void MainFrame::show_job(const Guid& job) {
    search_->Clear();
    views_->select(View::of_category(model_.engine.first_category()->identity));
    jobs_->select({job});
    jobs_->table().control().SetFocus();
}

void MainFrame::take_dropped(const Dropped& dropped, const wxPoint& on_screen) {
    const View* const category = views_->IsShownOnScreen() ? views_->category_at(on_screen) : nullptr;
    if (!dragged_.empty()) {
        if (category != nullptr) actions_.move(dragged_, category->category);
        return;
    }
    if (!dropped.files.empty()) {
        JobDraft draft;
        draft.links = dropped.files;
        const Guid viewed = model_.tree.chosen_category(views_->view());
        if (!viewed.is_zero()) draft.category = viewed;
        if (category != nullptr) draft.category = category->category;
        draft.asks_which = true;
        actions_.add(draft);
    }
    if (dropped.links.empty()) return;
    std::string text;
    for (const std::string& link : dropped.links) text += link + "\n";
    if (category != nullptr) views_->select(*category);
    new_jobs(text);
}

void MainFrame::paste() {
    const Dropped dropped = read_clipboard();
    if (dropped.empty()) return say(tr("There are no links in the clipboard."));
    take_dropped(dropped, wxDefaultPosition);
}

// Once for each text, of the chosen endings, and never for what was copied here.
void MainFrame::clipboard_changed() {
    if (!host_.settings().flag(setting::watch_clipboard) || IsActive()) return;
    Dropped dropped = read_clipboard();
    dropped.files.clear();
    dropped.links =
        links_by_rule(std::move(dropped.links), to_utf8(host_.settings().text(setting::clipboard_endings)));
    if (dropped.links.empty() || dropped.links == last_links_ || asking_) return;
    last_links_ = dropped.links;
    if (copied_text().Contains(ui(dropped.links.front()))) return;
    come_to_front();
    take_dropped(dropped, wxDefaultPosition);
}

void MainFrame::move_to(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= move_targets_.size()) return;
    actions_.move(model_.rows.selected(), move_targets_[static_cast<std::size_t>(index)]);
    host_.turn();
}

// Begins with the finished films among the selected jobs.
void MainFrame::join_films() {
    std::vector<std::u16string> pieces;
    for (const Guid& id : model_.rows.selected()) {
        const CJobNode* const job = model_.engine.find(id);
        if (job != nullptr && job->state == JobState::finished && is_film(job->path))
            pieces.push_back(job->path);
    }
    CCombineMediaDlg dialog(*this, model_, pieces);
    if (dialog.ShowModal() == wxID_OK) tell_about(dialog.said());
}

}  // namespace vantlow
