#include "app/window/question_dialog.h"

#include <wx/button.h>
#include <wx/dialog.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/timer.h>

#include <algorithm>

#include "app/window/confirm.h"
#include "app/window/file_choice.h"
#include "app/window/model/new_jobs.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/model/troubles.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

constexpr int wrapped_at = 460;  // device-independent pixels
constexpr int look_interval_ms = 500;

enum Answer : int { answer_yes = wxID_HIGHEST + 2000, answer_no, answer_rename };

// With the reason, where it says more than the question.
std::string asked(const Question& question, const JobAsking& job) {
    if (question.kind == QuestionKind::certificate && !job.error.empty())
        return trouble_text(job.error) + "\n" + tr("Should the download go on all the same?");
    return sentence_of(question);
}

/// One question of the engine: a sentence, what is asked for, and a row of buttons.
class QuestionDialog : public wxDialog {
  public:
    [[nodiscard]] virtual QuestionAnswer answer(int button) const = 0;

  protected:
    /// `gone` becomes true when the question lapses or another client answers it; the dialog closes then.
    QuestionDialog(wxWindow& parent, const Question& question, const std::function<bool()>& gone,
                   const JobAsking& job = {});
    wxButton* add_button(int id, const wxString& label);
    /// To be called last.
    void finish();

    const Question& question_;
    wxBoxSizer* all_ = nullptr;

  private:
    wxBoxSizer* buttons_ = nullptr;
    wxTimer timer_;
};

QuestionDialog::QuestionDialog(wxWindow& parent, const Question& question, const std::function<bool()>& gone,
                               const JobAsking& job)
    : wxDialog(&parent, wxID_ANY, ui(tr("Question")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      question_(question),
      all_(new wxBoxSizer(wxVERTICAL)),
      buttons_(new wxBoxSizer(wxHORIZONTAL)) {
    auto* const text = new wxStaticText(this, wxID_ANY, as_label(asked(question, job)));
    text->Wrap(FromDIP(wrapped_at));
    all_->Add(text, wxSizerFlags().Expand().Border(wxALL, FromDIP(12)));
    buttons_->AddStretchSpacer();
    timer_.Bind(wxEVT_TIMER, [this, gone](wxTimerEvent&) {
        if (gone() && IsModal()) EndModal(wxID_CANCEL);
    });
    timer_.Start(look_interval_ms);
}

wxButton* QuestionDialog::add_button(int id, const wxString& label) {
    auto* const button = new wxButton(this, id, label);
    if (id != wxID_CANCEL) button->Bind(wxEVT_BUTTON, [this, id](wxCommandEvent&) { EndModal(id); });
    buttons_->Add(button, wxSizerFlags().Border(wxLEFT, FromDIP(6)));
    return button;
}

void QuestionDialog::finish() {
    finish_dialog(*this);
    // One that the window itself asks is not kept anywhere.
    add_button(wxID_CANCEL, question_.id != 0 ? ui(tr("A&sk later")) : ui(tr("Choose &later")));
    all_->Add(buttons_, wxSizerFlags().Expand().Border(wxALL, FromDIP(12)));
    SetSizerAndFit(all_);
    CentreOnParent();
}

/// The choice among the files that a Metalink or another document names.
class CSelectMetalinkDlg : public QuestionDialog {
  public:
    CSelectMetalinkDlg(wxWindow& parent, const Question& question, const std::function<bool()>& gone);
    [[nodiscard]] QuestionAnswer answer(int button) const override;

  private:
    FileChoice* files_ = nullptr;
};

CSelectMetalinkDlg::CSelectMetalinkDlg(wxWindow& parent, const Question& question,
                                       const std::function<bool()>& gone)
    : QuestionDialog(parent, question, gone), files_(new FileChoice(this)) {
    std::vector<FileChoice::File> files;
    for (const Question::File& file : question_.files) files.push_back({file.name, file.size, file.starts});
    files_->set_files(files);
    all_->Add(files_, wxSizerFlags(1).Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    add_button(answer_yes, ui(tr("&Download")))->SetDefault();
    finish();
}

QuestionAnswer CSelectMetalinkDlg::answer(int button) const {
    const std::vector<bool> chosen = files_->chosen();
    QuestionAnswer answer;
    answer.yes = button == answer_yes;
    answer.selection = selection_of(chosen);
    answer.none = std::ranges::find(chosen, true) == chosen.end();
    return answer;
}

/// A login that is wanted. One that was refused is there to be mended.
class LoginDialog : public QuestionDialog {
  public:
    LoginDialog(wxWindow& parent, const Question& question, const JobAsking& job,
                const std::function<bool()>& gone);
    [[nodiscard]] QuestionAnswer answer(int button) const override;

  private:
    wxTextCtrl* user_ = nullptr;
    wxTextCtrl* password_ = nullptr;
};

LoginDialog::LoginDialog(wxWindow& parent, const Question& question, const JobAsking& job,
                         const std::function<bool()>& gone)
    : QuestionDialog(parent, question, gone, job) {
    auto* const grid = new wxFlexGridSizer(2, FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    user_ = add_text(*this, *grid, ui(tr("&User:")), ui(to_utf8(job.user)));
    user_->SetMinSize(FromDIP(wxSize(260, -1)));
    password_ = add_text(*this, *grid, ui(tr("Pass&word:")), wxString(), wxTE_PASSWORD);
    all_->Add(grid, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    wxButton* const log_in = add_button(answer_yes, ui(tr("&Log in")));
    log_in->SetDefault();
    log_in->Enable(!job.user.empty());
    user_->Bind(wxEVT_TEXT, [log_in](wxCommandEvent& event) { log_in->Enable(!event.GetString().empty()); });
    add_button(answer_no, ui(tr("Without a lo&gin")));
    finish();
    (job.user.empty() ? user_ : password_)->SetFocus();
}

QuestionAnswer LoginDialog::answer(int button) const {
    QuestionAnswer answer;
    answer.yes = button == answer_yes;
    if (!answer.yes) return answer;
    answer.user = wide_of(user_->GetValue());
    answer.password = wide_of(password_->GetValue());
    return answer;
}

/// Whether a server is trusted, or what becomes of a file that is there.
class DecisionDialog : public QuestionDialog {
  public:
    DecisionDialog(wxWindow& parent, const Question& question, const JobAsking& job,
                   const std::function<bool()>& gone);
    [[nodiscard]] QuestionAnswer answer(int button) const override;
};

DecisionDialog::DecisionDialog(wxWindow& parent, const Question& question, const JobAsking& job,
                               const std::function<bool()>& gone)
    : QuestionDialog(parent, question, gone, job) {
    if (!question.fingerprint.empty()) {
        // It can be selected and compared with what the owner of the server says.
        auto* const print = new wxTextCtrl(this, wxID_ANY, ui(question.fingerprint), wxDefaultPosition,
                                           wxDefaultSize, wxTE_READONLY);
        name_for_readers(*print, ui(tr("Fingerprint")));
        all_->Add(print, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    }
    wxButton* harmless = nullptr;
    if (question.kind == QuestionKind::overwrite) {
        harmless = add_button(answer_rename, ui(tr("&Keep both")));
        add_button(answer_yes, ui(tr("&Replace it")));
        add_button(answer_no, ui(tr("&Leave it")));
    } else {
        add_button(answer_yes, ui(tr("&Trust it")));
        harmless = add_button(answer_no, ui(tr("&Do not trust it")));
    }
    finish();
    // Enter and the space bar do what can be mended.
    harmless->SetDefault();
    harmless->SetFocus();
}

QuestionAnswer DecisionDialog::answer(int button) const {
    QuestionAnswer answer;
    answer.yes = button == answer_yes;
    answer.rename = button == answer_rename;
    return answer;
}

std::optional<QuestionAnswer> ask_by(QuestionDialog&& dialog) {
    const int button = dialog.ShowModal();
    if (button == wxID_CANCEL) return std::nullopt;
    return dialog.answer(button);
}

}  // namespace

std::optional<QuestionAnswer> ask(wxWindow& parent, const Question& question, const JobAsking& job,
                                  const std::function<bool()>& gone) {
    switch (question.kind) {
        case QuestionKind::which_files:
            return ask_by(CSelectMetalinkDlg(parent, question, gone));
        case QuestionKind::credentials:
            return ask_by(LoginDialog(parent, question, job, gone));
        default:
            return ask_by(DecisionDialog(parent, question, job, gone));
    }
}

}  // namespace vantlow
