#include "app/window/question_dialog.h"

#include <wx/button.h>
#include <wx/checklst.h>
#include <wx/dialog.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/timer.h>

#include <algorithm>

#include "app/window/confirm.h"
#include "app/window/model/new_jobs.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

constexpr int wrapped_at = 460;  // device-independent pixels
constexpr int look_interval_ms = 500;

enum Answer : int { answer_yes = wxID_HIGHEST + 2000, answer_no, answer_rename };

class QuestionDialog : public wxDialog {
  public:
    QuestionDialog(wxWindow& parent, const Question& question, const std::function<bool()>& gone);
    [[nodiscard]] QuestionAnswer answer(int button) const;

  private:
    void build_login(wxSizer& all);
    void build_files(wxSizer& all);
    void build_buttons(wxSizer& all);

    const Question& question_;
    wxTimer timer_;
    wxTextCtrl* user_ = nullptr;
    wxTextCtrl* password_ = nullptr;
    wxCheckListBox* files_ = nullptr;
};

QuestionDialog::QuestionDialog(wxWindow& parent, const Question& question, const std::function<bool()>& gone)
    : wxDialog(&parent, wxID_ANY, ui(tr("Question")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      question_(question) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    auto* const text = new wxStaticText(this, wxID_ANY, as_label(sentence_of(question)));
    text->Wrap(FromDIP(wrapped_at));
    all->Add(text, wxSizerFlags().Expand().Border(wxALL, FromDIP(12)));
    if (!question.fingerprint.empty()) {
        // It can be selected and compared with what the owner of the server says.
        auto* const print = new wxTextCtrl(this, wxID_ANY, ui(question.fingerprint), wxDefaultPosition,
                                           wxDefaultSize, wxTE_READONLY);
        name_for_readers(*print, ui(tr("Fingerprint")));
        all->Add(print, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    }
    if (question.kind == QuestionKind::credentials) build_login(*all);
    if (question.kind == QuestionKind::which_files) build_files(*all);
    build_buttons(*all);
    SetSizerAndFit(all);
    CentreOnParent();
    timer_.Bind(wxEVT_TIMER, [this, gone](wxTimerEvent&) {
        if (gone() && IsModal()) EndModal(wxID_CANCEL);
    });
    timer_.Start(look_interval_ms);
}

void QuestionDialog::build_login(wxSizer& all) {
    auto* const grid = new wxFlexGridSizer(2, FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    grid->Add(new wxStaticText(this, wxID_ANY, ui(tr("&User:"))), wxSizerFlags().CentreVertical());
    user_ = new wxTextCtrl(this, wxID_ANY, ui(to_utf8(question_.standard.user)));
    name_for_readers(*user_, ui(tr("User")));
    user_->SetMinSize(FromDIP(wxSize(260, -1)));
    grid->Add(user_, wxSizerFlags().Expand());
    grid->Add(new wxStaticText(this, wxID_ANY, ui(tr("Pass&word:"))), wxSizerFlags().CentreVertical());
    password_ = new wxTextCtrl(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, wxTE_PASSWORD);
    name_for_readers(*password_, ui(tr("Password")));
    grid->Add(password_, wxSizerFlags().Expand());
    all.Add(grid, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    user_->SetFocus();
}

void QuestionDialog::build_files(wxSizer& all) {
    files_ = new wxCheckListBox(this, wxID_ANY);
    name_for_readers(*files_, ui(tr("Files")));
    for (std::size_t i = 0; i < question_.files.size(); ++i) {
        const Question::File& file = question_.files[i];
        wxString line = ui(shown(file.name));
        if (file.size >= 0) line += " (" + ui(size_text(file.size)) + ")";
        files_->Append(line);
        files_->Check(static_cast<unsigned>(i), file.starts);
    }
    files_->SetMinSize(FromDIP(wxSize(460, 220)));
    all.Add(files_, wxSizerFlags(1).Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    auto* const both = new wxBoxSizer(wxHORIZONTAL);
    for (const bool checked : {true, false}) {
        auto* const button =
            new wxButton(this, wxID_ANY, checked ? ui(tr("Choose &all")) : ui(tr("Choose n&one")));
        button->Bind(wxEVT_BUTTON, [this, checked](wxCommandEvent&) {
            for (unsigned i = 0; i < files_->GetCount(); ++i) files_->Check(i, checked);
        });
        both->Add(button, wxSizerFlags().Border(wxRIGHT, FromDIP(6)));
    }
    all.Add(both, wxSizerFlags().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
}

void QuestionDialog::build_buttons(wxSizer& all) {
    auto* const row = new wxBoxSizer(wxHORIZONTAL);
    row->AddStretchSpacer();
    wxButton* first = nullptr;
    const auto add = [&](int id, const wxString& label) {
        auto* const button = new wxButton(this, id, label);
        if (id != wxID_CANCEL) button->Bind(wxEVT_BUTTON, [this, id](wxCommandEvent&) { EndModal(id); });
        row->Add(button, wxSizerFlags().Border(wxLEFT, FromDIP(6)));
        if (first == nullptr) first = button;
        return button;
    };
    switch (question_.kind) {
        case QuestionKind::host_key:
        case QuestionKind::certificate:
            add(answer_yes, ui(tr("&Trust it")));
            add(answer_no, ui(tr("&Do not trust it")))->SetDefault();
            break;
        case QuestionKind::overwrite:
            add(answer_rename, ui(tr("&Keep both")))->SetDefault();
            add(answer_yes, ui(tr("&Replace it")));
            add(answer_no, ui(tr("&Leave it")));
            break;
        case QuestionKind::credentials:
            add(answer_yes, ui(tr("&Log in")))->SetDefault();
            add(answer_no, ui(tr("&Without a login")));
            break;
        case QuestionKind::which_files:
            add(answer_yes, ui(tr("&Download")))->SetDefault();
            break;
    }
    add(wxID_CANCEL, ui(tr("Ask &later")));
    all.Add(row, wxSizerFlags().Expand().Border(wxALL, FromDIP(12)));
}

QuestionAnswer QuestionDialog::answer(int button) const {
    QuestionAnswer answer;
    answer.yes = button == answer_yes;
    answer.rename = button == answer_rename;
    if (user_ != nullptr && answer.yes) {
        answer.user = wide_of(user_->GetValue());
        answer.password = wide_of(password_->GetValue());
    }
    if (files_ != nullptr) {
        std::vector<bool> chosen(files_->GetCount());
        for (unsigned i = 0; i < files_->GetCount(); ++i) chosen[i] = files_->IsChecked(i);
        answer.selection = selection_of(chosen);
        answer.none = std::ranges::find(chosen, true) == chosen.end();
    }
    return answer;
}

}  // namespace

std::optional<QuestionAnswer> ask(wxWindow& parent, const Question& question,
                                  const std::function<bool()>& gone) {
    QuestionDialog dialog(parent, question, gone);
    const int button = dialog.ShowModal();
    if (button == wxID_CANCEL) return std::nullopt;
    return dialog.answer(button);
}

}  // namespace vantlow
