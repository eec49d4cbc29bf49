#include "app/window/new_job_dialog.h"

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/choice.h>
#include <wx/clipbrd.h>
#include <wx/display.h>
#include <wx/sizer.h>
#include <wx/spinctrl.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>

#include "app/window/confirm.h"
#include "app/window/file_choice.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "platform/desktop.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr int pause_ms = 600;  // of the typing, before a server is asked

int depth_of(const CClassNode& category) {
    int depth = 0;
    for (const CClassNode* above = category.parent; above != nullptr; above = above->parent) ++depth;
    return depth;
}

// The letter that a label can be reached by with Alt, as keys name it.
int letter_of(const wxString& label) {
    const wxString letter = label.AfterFirst('&').Left(1).Upper();
    return letter.empty() ? 0 : static_cast<int>(letter[0].GetValue());
}

// The lines of the clipboard that can be addresses: the system would lay out one of megabytes for half a
// minute. None: all of it can go into the field as it is.
std::optional<wxString> shorter_clipboard() {
    constexpr std::size_t longest_address = 65536;
    wxTextDataObject data;
    if (!wxTheClipboard->Open()) return std::nullopt;
    const bool is_text = wxTheClipboard->IsSupported(wxDF_UNICODETEXT) && wxTheClipboard->GetData(data);
    wxTheClipboard->Close();
    const wxString text = is_text ? data.GetText() : wxString();
    if (text.length() <= longest_address) return std::nullopt;
    wxString kept;
    bool is_whole = true;
    for (const wxString& line : wxSplit(text, '\n', '\0')) {
        is_whole = is_whole && line.length() <= longest_address;
        if (line.length() <= longest_address) kept += line + "\n";
    }
    return is_whole ? std::nullopt : std::optional(kept);
}

}  // namespace

NewJobDialog::NewJobDialog(wxWindow& parent, WindowModel& model, NewJobForm form)
    : wxDialog(&parent, wxID_ANY, ui(tr("New download")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      model_(model),
      form_(std::move(form)) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(new wxStaticText(this, wxID_ANY, ui(tr("&Addresses, one in each line:"))),
             wxSizerFlags().Border(wxLEFT | wxRIGHT | wxTOP, FromDIP(10)));
    addresses_ = new wxTextCtrl(this, wxID_ANY, ui(form_.addresses), wxDefaultPosition, wxDefaultSize,
                                wxTE_MULTILINE | wxTE_DONTWRAP);
    name_for_readers(*addresses_, ui(tr("Addresses")));
    addresses_->Bind(wxEVT_TEXT_PASTE, [this](wxClipboardTextEvent& event) {
        const auto shorter = shorter_clipboard();
        if (!shorter) return event.Skip();
        addresses_->WriteText(*shorter);
        note_->SetLabel(ui(tr("Lines that are too long to be addresses were left out.")));
    });
    addresses_->SetMinSize(FromDIP(wxSize(580, 90)));
    all->Add(addresses_, wxSizerFlags(1).Expand().Border(wxALL, FromDIP(10)));
    // Lines that change while it is typed are as long as the dialog is wide.
    constexpr long shortened = wxST_NO_AUTORESIZE | wxST_ELLIPSIZE_END;
    note_ = new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, shortened);
    all->Add(note_, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT, FromDIP(10)));
    build_known(*all);
    says_ = new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, shortened);
    all->Add(says_, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxTOP, FromDIP(10)));
    build_files(*all);
    build_places(*all);
    build_more(*all);
    all->Add(CreateSeparatedButtonSizer(wxOK | wxCANCEL), wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    finish_dialog(*this);
    // On Windows the head of the pane is no button, to which the system would bring the letter. Bound last
    // this is asked before what finish_dialog() has bound.
    Bind(wxEVT_CHAR_HOOK, [this, letter = letter_of(ui(tr("&More")))](wxKeyEvent& event) {
        if (event.GetModifiers() != wxMOD_ALT || event.GetKeyCode() != letter) return event.Skip();
        more_->Collapse(!more_->IsCollapsed());
        grow();
    });
    ok_ = dynamic_cast<wxButton*>(FindWindow(wxID_OK));
    if (ok_ != nullptr) ok_->SetLabel(ui(tr("&Download")));
    SetSizerAndFit(all);
    CentreOnParent();
    Bind(wxEVT_TEXT, [this](wxCommandEvent&) { look(); });
    Bind(wxEVT_CHOICE, [this](wxCommandEvent&) { look(); });
    Bind(wxEVT_CHECKBOX, [this](wxCommandEvent&) { look(); });
    Bind(wxEVT_CHECKLISTBOX, [this](wxCommandEvent&) { look(); });
    Bind(wxEVT_SPINCTRL, [this](wxSpinEvent&) { look(); });
    pause_.Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
        inquiry_ = model_.new_jobs.inquire(form_, [this] { CallAfter([this] { look_at_server(); }); });
        look_at_server();
    });
    space_pause_.Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
        free_space_ = free_space(space_of_);
        show_space();
    });
    addresses_->SetFocus();
    addresses_->SetInsertionPointEnd();
    look();
}

void NewJobDialog::build_known(wxSizer& all) {
    auto* const row = new wxBoxSizer(wxHORIZONTAL);
    const auto add = [this, row](Result result, const std::string& label) {
        auto* const button = new wxButton(this, wxID_ANY, ui(label));
        button->Bind(wxEVT_BUTTON, [this, result](wxCommandEvent&) { EndModal(result); });
        button->Hide();
        row->Add(button, wxSizerFlags().Border(wxRIGHT | wxTOP, FromDIP(6)));
        of_known_[result] = button;
    };
    add(show_known, tr("Show it"));
    add(open_known, tr("Open the file"));
    add(add_mirrors, tr("Add the others as its mirrors"));
    all.Add(row, wxSizerFlags().Border(wxLEFT, FromDIP(10)));
}

void NewJobDialog::build_files(wxSizer& all) {
    files_ = new FileChoice(this);
    files_->Hide();
    all.Add(files_, wxSizerFlags(1).Expand().Border(wxLEFT | wxRIGHT | wxTOP, FromDIP(10)));
}

void NewJobDialog::build_places(wxSizer& all) {
    auto* const grid = new wxFlexGridSizer(2, FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    grid->Add(new wxStaticText(this, wxID_ANY, ui(tr("Categor&y:"))), wxSizerFlags().CentreVertical());
    category_ = new wxChoice(this, wxID_ANY);
    name_for_readers(*category_, ui(tr("Category")));
    for (const CClassNode* const category : model_.engine.categories()) {
        category_->Append(wxString(' ', static_cast<std::size_t>(2 * depth_of(*category))) +
                          ui(name_of(*category)));
        categories_.push_back(category->identity);
        if (category->identity == form_.category)
            category_->SetSelection(static_cast<int>(categories_.size()) - 1);
    }
    if (category_->GetSelection() < 0) category_->SetSelection(0);
    category_->Bind(wxEVT_CHOICE, [this](wxCommandEvent& event) {
        form_.category = categories_[static_cast<std::size_t>(event.GetSelection())];
        form_.category_is_chosen = true;
        event.Skip();
    });
    grid->Add(category_, wxSizerFlags().Expand());
    folder_ = add_folder(*this, *grid, ui(tr("&Folder:")), form_.folder, model_.new_jobs.folder_of(form_));
    grid->AddSpacer(0);
    space_ =
        new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, wxST_NO_AUTORESIZE);
    grid->Add(space_, wxSizerFlags().Expand());
    name_ = add_text(*this, *grid, ui(tr("&Name:")), ui(to_utf8(form_.name)));
    name_->SetHint(ui(tr("as the server names it")));
    grid->Add(new wxStaticText(this, wxID_ANY, ui(tr("C&onnections:"))), wxSizerFlags().CentreVertical());
    auto* const last = new wxBoxSizer(wxHORIZONTAL);
    connections_ = new wxSpinCtrl(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize,
                                  wxSP_ARROW_KEYS, 1, most_connections, form_.connections);
    name_for_readers(*connections_, ui(tr("Connections")));
    last->Add(connections_);
    last->Add(new wxStaticText(this, wxID_ANY, ui(tr("&Start:"))),
              wxSizerFlags().CentreVertical().Border(wxLEFT, FromDIP(16)));
    start_ = new wxChoice(this, wxID_ANY);
    name_for_readers(*start_, ui(tr("Start")));
    start_->Append(ui(tr("at once")));
    start_->Append(ui(tr("by hand")));
    if (model_.new_jobs.has_plan()) start_->Append(ui(tr("by the week plan")));
    start_->SetSelection(static_cast<int>(form_.start));
    last->Add(start_, wxSizerFlags().CentreVertical().Border(wxLEFT, FromDIP(6)));
    expand_ = new wxCheckBox(this, wxID_ANY, ui(tr("E&xpand [1-20] and [a-z]")));
    expand_->SetValue(form_.expand);
    last->Add(expand_, wxSizerFlags().CentreVertical().Border(wxLEFT, FromDIP(16)));
    grid->Add(last, wxSizerFlags().Expand());
    all.Add(grid, wxSizerFlags().Expand().Border(wxALL, FromDIP(10)));
}

void NewJobDialog::build_more(wxSizer& all) {
    auto* const fold = new wxCollapsiblePane(this, wxID_ANY, ui(tr("&More")), wxDefaultPosition,
                                             wxDefaultSize, wxCP_DEFAULT_STYLE | wxCP_NO_TLW_RESIZE);
    wxWindow* const pane = fold->GetPane();
    // Two fields beside each other: with one in each line the dialog would be higher than small screens.
    auto* const grid = new wxFlexGridSizer(4, FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1, 1);
    grid->AddGrowableCol(3, 1);
    user_ = add_text(*pane, *grid, ui(tr("&User:")), ui(to_utf8(form_.user)));
    password_ = add_text(*pane, *grid, ui(tr("Pass&word:")), ui(to_utf8(form_.password)), wxTE_PASSWORD);
    limit_ = add_text(*pane, *grid, ui(tr("Speed &limit:")), ui(form_.limit));
    limit_->SetHint(ui(tr("bytes a second: 500K, 2M")));
    hash_ = add_text(*pane, *grid, ui(tr("&Hash:")), ui(form_.hash));
    hash_->SetHint("sha256:...");
    referer_ = add_text(*pane, *grid, ui(tr("&Referer:")), ui(to_utf8(form_.referer)));
    cookie_ = add_text(*pane, *grid, ui(tr("Coo&kies:")), ui(to_utf8(form_.cookie)));
    agent_ = add_text(*pane, *grid, ui(tr("User a&gent:")), ui(to_utf8(form_.agent)));
    proxy_ = add_text(*pane, *grid, ui(tr("&Proxy:")), ui(to_utf8(form_.proxy)));
    comment_ = add_text(*pane, *grid, ui(tr("Comm&ent:")), ui(to_utf8(form_.comment)));
    grid->AddSpacer(0);
    grid->AddSpacer(0);
    start_time_ = add_text(*pane, *grid, ui(tr("Beg&in at:")), ui(form_.times.start));
    start_time_->SetHint(ui(tr("22:00, or 2026-11-27 22:00")));
    stop_time_ = add_text(*pane, *grid, ui(tr("S&top at:")), ui(form_.times.stop));
    auto* const week = new wxBoxSizer(wxHORIZONTAL);
    week->Add(new wxStaticText(pane, wxID_ANY, ui(tr("Every week on:"))),
              wxSizerFlags().CentreVertical().Border(wxRIGHT, FromDIP(8)));
    week->Add(make_weekday_boxes(*pane, parse_weekdays(form_.times.days).value_or(0),
                                 [this](std::int32_t days) { form_.times.days = weekdays_text(days); }),
              wxSizerFlags(1).CentreVertical());
    auto* const rows = new wxBoxSizer(wxVERTICAL);
    rows->Add(grid, wxSizerFlags().Expand());
    rows->Add(week, wxSizerFlags().Expand().Border(wxTOP, FromDIP(6)));
    pane->SetSizer(rows);
    fold->Bind(wxEVT_COLLAPSIBLEPANE_CHANGED, [this](wxCollapsiblePaneEvent&) { grow(); });
    more_ = fold;
    all.Add(fold, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT, FromDIP(10)));
}

void NewJobDialog::read() {
    form_.addresses = utf8_of(addresses_->GetValue());
    form_.folder = wide_of(folder_->GetValue());
    form_.name = wide_of(name_->GetValue());
    form_.connections = connections_->GetValue();
    form_.start = static_cast<NewJobForm::Start>(start_->GetSelection());
    form_.times.start = utf8_of(start_time_->GetValue());
    form_.times.stop = utf8_of(stop_time_->GetValue());
    form_.expand = expand_->GetValue();
    form_.user = wide_of(user_->GetValue());
    form_.password = wide_of(password_->GetValue());
    form_.limit = utf8_of(limit_->GetValue());
    form_.hash = utf8_of(hash_->GetValue());
    form_.referer = wide_of(referer_->GetValue());
    form_.cookie = wide_of(cookie_->GetValue());
    form_.agent = wide_of(agent_->GetValue());
    form_.proxy = wide_of(proxy_->GetValue());
    form_.comment = wide_of(comment_->GetValue());
}

// Follows parts that came or went, without leaving the screen; what they moved is drawn anew at once.
void NewJobDialog::grow() {
    Layout();
    Fit();
    const wxRect room = wxDisplay(this).GetClientArea();
    wxRect own = GetRect();
    own.y = std::max(std::min(own.y, room.GetBottom() - own.height), room.y);
    if (own != GetRect()) SetSize(own);
    Refresh();
}

// All of another torrent's files are chosen at first.
void NewJobDialog::look_at_files() {
    const std::vector<TorrentEntry>& files = model_.new_jobs.files(form_);
    if (files != files_seen_) {
        files_seen_ = files;
        std::vector<FileChoice::File> choice;
        for (const TorrentEntry& file : files) choice.push_back({file.name, file.size});
        files_->set_files(choice);
        files_->Show(!files.empty());
        grow();
    }
    form_.chosen = files_->chosen();
}

// Until a person chooses one, the category is that of the rules.
void NewJobDialog::look_at_category() {
    form_.category = model_.new_jobs.category_of(form_);
    const auto at = std::ranges::find(categories_, form_.category);
    if (at != categories_.end()) category_->SetSelection(static_cast<int>(at - categories_.begin()));
}

// Another question ends the one before.
void NewJobDialog::look_at_server() {
    const std::string question = model_.new_jobs.question_of(form_);
    if (question != question_) {
        pause_.Stop();
        inquiry_.reset();
        if (!question.empty()) pause_.StartOnce(IsShown() ? pause_ms : 1);
        question_ = question;
    }
    const auto says = inquiry_ ? inquiry_->answer() : std::nullopt;
    const bool waits = !question.empty() && !says && (inquiry_ || pause_.IsRunning());
    says_->SetLabel(says    ? as_label(sentence_of(*says))
                    : waits ? ui(tr("The server is being asked ..."))
                            : as_label(model_.new_jobs.note_on_files(form_)));
    const bool is_named = says && says->result.ok();
    name_->SetHint(is_named ? ui(shown(says->name)) : ui(tr("as the server names it")));
    if (const std::int64_t size = is_named ? says->size : -1; size != said_size_) {
        said_size_ = size;
        show_space();
    }
    const std::u16string said = is_named ? says->name : std::u16string();
    if (said == form_.said_name) return;
    form_.said_name = said;
    look_at_category();
    look_at_places();
}

void NewJobDialog::look_at_places() {
    folder_->SetHint(ui(shown(model_.new_jobs.folder_of(form_))));
    const auto known = model_.new_jobs.known(form_);
    note_->SetLabel(note(known));
    look_at_known(known);
    look_at_space();
}

// A folder of another machine may take long to answer: it is asked when the typing pauses.
void NewJobDialog::look_at_space() {
    const std::u16string folder = model_.new_jobs.folder_of(form_);
    if (folder == space_of_ || absolute_path(folder) != folder) return;
    space_of_ = folder;
    space_pause_.StartOnce(IsShown() ? pause_ms : 1);
}

void NewJobDialog::show_space() {
    if (!free_space_) return space_->SetLabel(wxString());
    const bool is_too_little = said_size_ > *free_space_;
    space_->SetLabel(ui(fill(is_too_little ? tr("%1 free: too little for this file") : tr("%1 free"),
                             {size_text(*free_space_)})));
}

void NewJobDialog::look_at_known(const std::vector<KnownAddress>& known) {
    const bool is_one = known.size() == 1;
    known_job_ = is_one ? known.front().job : Guid();
    other_links_.clear();
    if (is_one) {
        other_links_ = model_.new_jobs.preview(form_, most_pattern_links);
        std::erase(other_links_, known.front().link);
    }
    bool changed = false;
    for (const auto& [result, button] : of_known_) {
        const bool fits = result == show_known   ? is_one
                          : result == open_known ? is_one && known.front().state == JobState::finished
                                                 : !other_links_.empty();
        changed = button->Show(fits) || changed;
    }
    if (!changed) return;
    grow();
}

// Says what is wrong, or what will be done, while it is typed.
wxString NewJobDialog::note(const std::vector<KnownAddress>& known) const {
    const auto faults = model_.new_jobs.check(form_);
    const bool is_empty = faults.size() == 1 && faults.front().kind == FormFault::Kind::empty;
    if (is_empty) return ui(tr("Enter or paste the addresses of files."));
    if (!faults.empty()) return as_label(sentence_of(faults.front()));
    if (!known.empty()) {
        return as_label(
            fill(tr("\"%1\" is in the list already: it would be downloaded again."), {known.front().link}));
    }
    const auto links = model_.new_jobs.preview(form_, most_pattern_links);
    if (links.size() < 2) return as_label(fill(tr("Goes to %1"), {shown(model_.new_jobs.folder_of(form_))}));
    const std::string count = trn("%1 address", "%1 addresses", static_cast<std::int64_t>(links.size()));
    return as_label(count + ": " + links[0] + ", " + links[1] +
                    (links.size() > 2 ? ", ..., " + links.back() : std::string()));
}

void NewJobDialog::look() {
    if (ok_ == nullptr || comment_ == nullptr) return;  // it is being built
    read();
    look_at_category();
    look_at_files();
    look_at_places();
    look_at_server();
    ok_->Enable(model_.new_jobs.check(form_).empty());
}

}  // namespace vantlow
