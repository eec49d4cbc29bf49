#include "app/window/job_actions.h"

#include <wx/dirdlg.h>
#include <wx/textdlg.h>

#include <algorithm>

#include "app/process/known_settings.h"
#include "app/process/queue_order.h"
#include "app/terminal/display_text.h"
#include "app/window/category_dialog.h"
#include "app/window/confirm.h"
#include "app/window/detail_tabs.h"
#include "app/window/model/job_properties.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/properties_dialog.h"
#include "app/window/words.h"
#include "platform/desktop.h"
#include "platform/file.h"

namespace vantlow {
namespace {

std::u16string name_of(const CJobNode& job) {
    const std::size_t cut = job.path.find_last_of(u"/\\");
    std::u16string name = cut == std::u16string::npos ? job.path : job.path.substr(cut + 1);
    if (!name.empty()) return name;
    return job.file_name.empty() ? job.address : job.file_name;
}

// The name within a question, which a server's name of hundreds of letters would make wider than the screen.
std::string short_name_of(const CJobNode& job) {
    constexpr int most_letters = 70;
    return shorten(shown(name_of(job)), most_letters);
}

}  // namespace

JobActions::Selected JobActions::selected() const {
    Selected jobs;
    for (const Guid& id : model_.rows.selected()) {
        if (const CJobNode* const job = model_.engine.find(id)) jobs.push_back(job);
    }
    return jobs;
}

bool JobActions::can_be_shared(const CJobNode& job) const {
    return job.state == JobState::finished && kind_of(job) == JobKind::torrent &&
           !model_.engine.is_sharing(job.identity);
}

bool JobActions::can(Command command, const Selected& jobs) const {
    const auto any = [&](const auto& passes) { return std::any_of(jobs.begin(), jobs.end(), passes); };
    switch (command) {
        case command_start:
            return any([this](const CJobNode* job) {
                return job->state == JobState::stopped || job->state == JobState::failed ||
                       can_be_shared(*job);
            });
        case command_stop:
            return any([this](const CJobNode* job) {
                return job->state == JobState::waiting || job->state == JobState::running ||
                       model_.engine.is_sharing(job->identity) || model_.engine.is_moving(job->identity);
            });
        case command_first:
        case command_earlier:
        case command_later:
        case command_last:
            return any([](const CJobNode* job) { return job->state == JobState::waiting; });
        case command_rename:
            return jobs.size() == 1 && !model_.engine.is_moving(jobs.front()->identity);
        case command_move_files:
            return any([this](const CJobNode* job) { return !model_.engine.is_moving(job->identity); });
        case command_open:
            return jobs.size() == 1 && jobs.front()->state == JobState::finished;
        case command_open_folder:
            return jobs.size() == 1;
        case command_start_over:
            return any([](const CJobNode* job) { return job->state != JobState::running; });
        case command_check:
            return any([this](const CJobNode* job) { return model_.engine.can_check(job->identity); });
        case command_undo:
            return model_.engine.removals_to_undo() > 0;
        case command_start_all:
        case command_stop_all:
        case command_select_all:
            return model_.rows.size() > 0;
        default:
            return !jobs.empty();
    }
}

bool JobActions::give(Command command) {
    switch (command) {
        case command_start:
            start(model_.rows.selected());
            break;
        case command_stop:
            for (const Guid& job : model_.rows.selected()) tell(model_.engine.stop(job), {});
            break;
        case command_start_all:
        case command_stop_all:
            start_or_stop_all(command == command_start_all);
            break;
        case command_first:
            reorder(Order::first);
            break;
        case command_earlier:
            reorder(Order::earlier);
            break;
        case command_later:
            reorder(Order::later);
            break;
        case command_last:
            reorder(Order::last);
            break;
        case command_rename:
            rename();
            break;
        case command_move_files:
            move_files();
            break;
        case command_open:
        case command_open_folder:
            open_selected(command == command_open_folder);
            break;
        case command_copy_address:
            copy_addresses();
            break;
        case command_remove:
        case command_remove_files:
            remove(command == command_remove_files);
            break;
        case command_start_over:
            start_over();
            break;
        case command_check:
            for (const Guid& job : model_.rows.selected()) {
                if (model_.engine.can_check(job)) tell(model_.engine.check(job), {});
            }
            break;
        case command_undo:
            tell(model_.engine.undo_removal(), {});
            break;
        case command_properties:
            if (edit_properties(parent_, model_.engine, model_.rows.selected(), faults_)) settle();
            break;
        default:
            return false;
    }
    tell_all();
    settle();
    return true;
}

void JobActions::start(const std::vector<Guid>& jobs) {
    for (const Guid& id : jobs) {
        const CJobNode* const job = model_.engine.find(id);
        if (job == nullptr || (job->state == JobState::finished && !can_be_shared(*job))) continue;
        tell(model_.engine.start(id), {});
    }
}

void JobActions::start_or_stop_all(bool start_them) {
    std::vector<Guid> jobs;
    for (std::size_t row = 0; row < model_.rows.size(); ++row) {
        const CJobNode* const job = model_.engine.find(model_.rows.at(row));
        // Those that have finished are started one by one.
        const bool is_meant = !start_them || (job != nullptr && job->state != JobState::finished);
        if (is_meant) jobs.push_back(model_.rows.at(row));
    }
    if (start_them) return start(jobs);
    for (const Guid& job : jobs) tell(model_.engine.stop(job), {});
}

void JobActions::start_or_stop_everything(bool start_them) {
    const CClassNode* const all = model_.engine.first_category();
    if (all == nullptr) return;
    tell(start_them ? model_.engine.start_all(all->identity) : model_.engine.stop_all(all->identity), {});
    tell_all();
    settle();
}

// From the side that they move to, so that several keep their order.
void JobActions::reorder(Order order) {
    std::vector<Guid> jobs;
    for (const CJobNode* const job : selected()) {
        if (job->state == JobState::waiting) jobs.push_back(job->identity);
    }
    std::sort(jobs.begin(), jobs.end(), [this](const Guid& a, const Guid& b) {
        return model_.engine.find(a)->order < model_.engine.find(b)->order;
    });
    if (order == Order::first || order == Order::later) std::reverse(jobs.begin(), jobs.end());
    for (const Guid& job : jobs) tell(model_.engine.reorder(job, order), {});
}

// An unfinished job loses what was fetched of it: that is asked first.
void JobActions::start_over() {
    std::vector<Guid> jobs;
    bool loses = false;
    for (const CJobNode* const job : selected()) {
        if (job->state == JobState::running) continue;
        jobs.push_back(job->identity);
        loses = loses || job->state != JobState::finished;
    }
    if (loses &&
        !confirm_as_set(parent_, model_, setting::confirm_start_over, ui(tr("Start over")),
                        ui(tr("Start over? What was downloaded so far is erased.")), ui(tr("&Start over"))))
        return;
    for (const Guid& job : jobs) {
        const Done done = model_.engine.start_over(job);
        if (done.fault != Done::Fault::no_job) tell(done, {});
    }
}

void JobActions::rename() {
    const auto jobs = selected();
    if (jobs.size() != 1) return;
    const Guid id = jobs.front()->identity;
    const std::string name = shown(name_of(*jobs.front()));
    // The toolkit's dialog would show the mark of a letter.
    const wxString label = wxControl::RemoveMnemonics(ui(tr("The file's &name:")));
    wxTextEntryDialog dialog(&parent_, label, ui(tr("Rename")), ui(name));
    finish_dialog(dialog);
    if (dialog.ShowModal() != wxID_OK || utf8_of(dialog.GetValue()) == name) return;
    const std::string wanted = utf8_of(dialog.GetValue());
    tell(model_.engine.rename(id, to_utf16(wanted)), wanted);
}

// They go behind the window's back; what comes of it the model tells.
void JobActions::move_files() {
    const std::vector<Guid> ids = model_.rows.selected();
    const auto jobs = selected();
    if (jobs.empty()) return;
    wxDirDialog dialog(&parent_, ui(tr("Folder")), ui(to_utf8(folder_of(jobs.front()->path))));
    if (dialog.ShowModal() != wxID_OK) return;
    const std::u16string folder = absolute_path(to_utf16(utf8_of(dialog.GetPath())));
    for (const Guid& job : ids) tell(model_.engine.move_files(job, folder), {});
}

void JobActions::open_selected(bool folder) {
    const auto jobs = selected();
    if (jobs.size() == 1) open(*jobs.front(), folder);
}

void JobActions::open(const Guid& job) {
    if (const CJobNode* const record = model_.engine.find(job)) open(*record, false);
    tell_all();
}

void JobActions::open(const CJobNode& job, bool folder) {
    const std::u16string path = job.path;
    // The folder of a job that has not begun is all there is to see of it.
    const bool has_file = path_kind(path) == PathKind::file;
    const FileError failed = !folder    ? open_with_desktop(path)
                             : has_file ? show_in_folder(path)
                                        : open_with_desktop(folder_of(path));
    if (!failed.ok())
        faults_.push_back(fill(tr("\"%1\" cannot be opened: %2"), {shown(path), failed.text()}));
}

void JobActions::copy_addresses() {
    wxString text;
    for (const CJobNode* const job : selected()) {
        if (!text.empty()) text += "\n";
        text += ui(to_utf8(job->address + job->fragment));
    }
    copy_text(text);
}

void JobActions::remove(bool with_files) {
    const auto jobs = selected();
    if (jobs.empty()) return;
    std::vector<Guid> ids;
    ids.reserve(jobs.size());
    for (const CJobNode* const job : jobs) ids.push_back(job->identity);
    const auto count = static_cast<std::int64_t>(jobs.size());
    const std::string name = short_name_of(*jobs.front());
    std::string question =
        trn("Remove %1 download from the list?", "Remove %1 downloads from the list?", count);
    if (count == 1) question = fill(tr("Remove \"%1\" from the list?"), {name});
    if (with_files) {
        question = trn("Remove %1 download and put its file into the bin?",
                       "Remove %1 downloads and put their files into the bin?", count);
        if (count == 1) question = fill(tr("Remove \"%1\" and put its file into the bin?"), {name});
    }
    if (!confirm_as_set(parent_, model_, setting::confirm_removal, ui(tr("Remove")), ui(question),
                        ui(tr("&Remove"))))
        return;
    // Those that run go when they have ended.
    const Removed removed = model_.engine.remove_all(ids, with_files ? Files::bin : Files::keep);
    for (const auto& [job, done] : removed.failures) tell(done, {});
}

void JobActions::move(const std::vector<Guid>& jobs, const Guid& category) {
    for (const Guid& job : jobs) tell(model_.engine.move(job, category), {});
    tell_all();
    settle();
}

void JobActions::reorder_before(const std::vector<Guid>& jobs, const Guid& next) {
    tell(move_before(model_.engine, jobs, next), {});
    tell_all();
    settle();
}

std::vector<Guid> JobActions::add(const JobDraft& draft) {
    const Added added = model_.engine.add(draft);
    for (const DraftFault& fault : added.faults) faults_.push_back(sentence_of(fault));
    tell(added.done, {});
    if (!draft.paused && !draft.schedule.starts_by_itself()) start(added.jobs);
    tell_all();
    settle();
    return added.jobs;
}

void JobActions::add_mirrors(const Guid& job, const std::vector<std::string>& links) {
    JobProperties properties(model_.engine, {job});
    std::string mirrors = properties.value(Property::mirrors).value_or("");
    for (const std::string& link : links) mirrors += link + "\n";
    properties.set(Property::mirrors, mirrors);
    if (const std::string fault = properties.fault(); !fault.empty()) {
        faults_.push_back(fault);
    } else {
        tell(model_.engine.change(job, properties.edit(job)), {});
    }
    tell_all();
    settle();
}

void JobActions::add_category(const Guid& parent) {
    const CClassNode* const above = model_.engine.find_category(parent);
    if (above == nullptr) return;
    const auto form = ask_category(parent_, tr("New category"), {}, &above->folder);
    if (!form || form->name.empty()) return;
    const bool fits = form->folder.empty() || absolute_path(form->folder) == form->folder;
    const Engine::NewCategory made = fits ? model_.engine.add_category(form->name, form->folder, parent)
                                          : Engine::NewCategory{{Done::Fault::bad_value}, {}};
    tell(made.done, shown(form->name));
    if (made.done.ok() && !form->rule.empty())
        tell(model_.engine.set_category_rule(made.category, form->rule), shown(form->name));
    tell_all();
    settle();
}

void JobActions::edit_category(const Guid& category) {
    const CClassNode* const node = model_.engine.find_category(category);
    if (node == nullptr) return;
    const CategoryForm before{node->name, node->folder, text_of(model_.engine.rule_of(category))};
    const std::u16string above = node->parent != nullptr ? node->parent->folder : std::u16string();
    const auto form =
        ask_category(parent_, tr("Edit category"), before, node->parent != nullptr ? &above : nullptr);
    if (!form) return;
    if (!form->name.empty() && form->name != before.name)
        tell(model_.engine.rename_category(category, form->name), shown(form->name));
    if (form->folder != before.folder)
        tell(model_.engine.set_category_folder(category, form->folder), shown(form->folder));
    if (form->rule != before.rule) tell(model_.engine.set_category_rule(category, form->rule), form->rule);
    tell_all();
    settle();
}

void JobActions::remove_category(const Guid& category) {
    const CClassNode* const node = model_.engine.find_category(category);
    if (node == nullptr) return;
    const std::string name = vantlow::name_of(*node);
    if (!confirm(
            parent_, ui(tr("Remove category")),
            ui(fill(tr("Remove the category \"%1\"? Its downloads go to the category above it."), {name})),
            ui(tr("&Remove"))))
        return;
    tell(model_.engine.remove_category(category), name);
    tell_all();
    settle();
}

void JobActions::settle() {
    model_.engine.settle([say = std::weak_ptr<Say>(say_)](const std::string& failure) {
        const auto there = say.lock();
        if (there && !failure.empty()) (*there)(failure);
    });
}

void JobActions::tell(const Done& done, const std::string& subject) {
    if (done.ok()) return;
    const std::string text = sentence_of(done);
    faults_.push_back(subject.empty() ? text : subject + ": " + text);
}

// The first of them, and how many more there are: a hundred jobs on a full disk are one sentence.
void JobActions::tell_all() {
    if (faults_.empty()) return;
    std::string text = faults_.front();
    const auto more = static_cast<std::int64_t>(faults_.size() - 1);
    if (more > 0) text += " " + trn("(and %1 more)", "(and %1 more)", more);
    faults_.clear();
    (*say_)(text);
}

}  // namespace vantlow
