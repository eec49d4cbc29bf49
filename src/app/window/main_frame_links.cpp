// The ways of links and jobs into the main window, and of its jobs out of it: dialogs, drops, the clipboard.
#include <algorithm>
#include <map>

#include "app/window/combine_dialog.h"
#include "app/window/main_frame.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/new_job_dialog.h"
#include "app/window/question_dialog.h"
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
wxString MainFrame::drag_jobs() {
    wxString text;
    const auto jobs = model_.rows.selected();
    for (const Guid& id : jobs) {
        const CJobNode* const job = model_.engine.find(id);
        if (job != nullptr) text += ui(to_utf8(job->address)) + "\n";
    }
    dragged_ = jobs;
    return text;
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
    if (!dialog.has_chosen_files()) undescribed_.insert(undescribed_.end(), added.begin(), added.end());
    host_.turn();
    if (!added.empty()) jobs_->select(added);
}

// A torrent that was added without a choice among its files is asked about as soon as these are known; until
// then all of them are wanted. One at a time.
void MainFrame::ask_which_files() {
    if (asking_ || ending_) return;
    Guid job;
    std::erase_if(undescribed_, [this, &job](const Guid& one) {
        const auto report = job.is_zero() ? model_.engine.torrent_report(one, 0) : TorrentReport();
        if (!report || !report->is_described) return !report;
        job = one;
        return true;
    });
    const auto report = model_.engine.torrent_report(job, torrent_part::files);
    if (!report || report->files.size() < 2) return;
    Question question;
    question.kind = QuestionKind::which_files;
    question.path = report->name;
    for (const TorrentFile& file : report->files)
        question.files.push_back({job, file.name, file.size, file.is_chosen()});
    asking_ = true;
    const auto answer = ask(*this, question, {}, [this, job] { return model_.engine.find(job) == nullptr; });
    asking_ = false;
    if (ending_) return;
    if (answer) choose_files(job, report->files.size(), *answer);
    CallAfter([this] { ask_next(); });
}

void MainFrame::choose_files(const Guid& job, std::size_t count, const QuestionAnswer& answer) {
    if (answer.none) return say(tr("Choose at least one of the files."));
    const auto chosen = select(answer.selection, count);
    if (!chosen) return;
    std::map<std::size_t, FilePriority> wanted;
    for (std::size_t file = 1; file <= count; ++file) wanted[file] = FilePriority::skip;
    for (const std::size_t file : *chosen) wanted[file + 1] = FilePriority::normal;
    const Done done = model_.engine.choose_files(job, wanted);
    if (!done.ok()) say(sentence_of(done));
    actions_.settle();
}

// Shows the view that has all jobs, with this one selected.
void MainFrame::show_job(const Guid& job) {
    search_->Clear();
    views_->select(View::of_category(model_.engine.first_category()->identity));
    jobs_->select({job});
    jobs_->table().control().SetFocus();
}

// Jobs of the list go to a category, or to another place in the queue.
void MainFrame::drop_jobs(const View* category, const wxPoint& on_screen) {
    if (category != nullptr) return actions_.move(dragged_, category->category);
    const auto gap = jobs_->table().gap_at(on_screen);
    if (!gap) return;
    if (!jobs_->shows_queue())
        return tell_about(
            tr("Sorted by the column \"Place\", downloads that wait can be dragged to another one."));
    actions_.reorder_before(dragged_, jobs_->waiting_from(*gap));
    host_.turn();
}

void MainFrame::take_dropped(const Dropped& dropped, const wxPoint& on_screen) {
    const View* const category = views_->IsShownOnScreen() ? views_->category_at(on_screen) : nullptr;
    if (!dragged_.empty()) return drop_jobs(category, on_screen);
    if (!dropped.files.empty()) {
        JobDraft draft;
        draft.links = dropped.files;
        const Guid viewed = model_.tree.chosen_category(views_->view());
        if (!viewed.is_zero()) draft.category = viewed;
        if (category != nullptr) draft.category = category->category;
        draft.asks_which = true;
        const auto added = actions_.add(draft);
        undescribed_.insert(undescribed_.end(), added.begin(), added.end());
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
    // While a window of this program is the active one, it is from there that something was copied.
    if (!host_.settings().flag(setting::watch_clipboard) || wxGetActiveWindow() != nullptr) return;
    Dropped dropped = read_clipboard();
    dropped.files.clear();
    dropped.links =
        links_by_rule(std::move(dropped.links), to_utf8(host_.settings().text(setting::clipboard_endings)));
    if (dropped.links.empty() || dropped.links == last_links_) return;
    last_links_ = dropped.links;
    if (copied_text().Contains(ui(dropped.links.front()))) return;
    copied_.links.insert(copied_.links.end(), dropped.links.begin(), dropped.links.end());
    take_copied();
}

// One dialog at a time: what is copied while another one is open waits for its end.
void MainFrame::take_copied() {
    const auto is_modal = [](const wxWindow* window) {
        const auto* const dialog = dynamic_cast<const wxDialog*>(window);
        return dialog != nullptr && dialog->IsModal();
    };
    if (copied_.empty() || asking_ || ending_) return;
    if (std::any_of(wxTopLevelWindows.begin(), wxTopLevelWindows.end(), is_modal)) return;
    const Dropped copied = std::exchange(copied_, {});
    come_to_front();
    take_dropped(copied, wxDefaultPosition);
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
