#include "app/window/properties_dialog.h"

#include <wx/dialog.h>
#include <wx/sizer.h>
#include <wx/spinctrl.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>
#include <functional>

#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/question_dialog.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

/// One text of a job, and where a changed one goes.
struct Field {
    wxString label;
    std::u16string JobFacts::*value = nullptr;
    std::optional<std::u16string> JobEdit::*edit = nullptr;
    bool is_secret = false;
    bool of_one = false;  ///< shown for a single job only
};

std::vector<Field> fields() {
    return {
        {ui(tr("&Address:")), &JobFacts::address, &JobEdit::address, false, true},
        {ui(tr("&Comment:")), &JobFacts::comment, &JobEdit::comment},
        {ui(tr("&User:")), &JobFacts::user, &JobEdit::user},
        {ui(tr("Pass&word:")), &JobFacts::password, &JobEdit::password, true},
        {ui(tr("&Referer:")), &JobFacts::referer, &JobEdit::referer},
        {ui(tr("Cookies:")), &JobFacts::cookie, &JobEdit::cookie},
        {ui(tr("User a&gent:")), &JobFacts::agent, &JobEdit::agent},
        {ui(tr("&Proxy:")), &JobFacts::proxy, &JobEdit::proxy},
    };
}

/// The value that all jobs share; none where they differ.
template <class Value, class Get>
std::optional<Value> shared(const std::vector<const CJobNode*>& jobs, const Get& get) {
    const Value first = get(*jobs.front());
    const bool same =
        std::all_of(jobs.begin(), jobs.end(), [&](const CJobNode* job) { return get(*job) == first; });
    return same ? std::optional<Value>(first) : std::nullopt;
}

class PropertiesDialog : public wxDialog {
  public:
    PropertiesDialog(wxWindow& parent, const std::vector<const CJobNode*>& jobs);
    [[nodiscard]] JobEdit edit() const;

  private:
    struct Shown {
        Field field;
        wxTextCtrl* control = nullptr;
        wxString before;
    };
    std::vector<Shown> shown_;
    wxSpinCtrl* connections_ = nullptr;
    int connections_before_ = 0;
};

PropertiesDialog::PropertiesDialog(wxWindow& parent, const std::vector<const CJobNode*>& jobs)
    : wxDialog(&parent, wxID_ANY, ui(tr("Properties")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER) {
    auto* const grid = new wxFlexGridSizer(2, FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    for (const Field& field : fields()) {
        if (field.of_one && jobs.size() > 1) continue;
        const auto value =
            shared<std::u16string>(jobs, [&](const CJobNode& job) { return job.*(field.value); });
        grid->Add(new wxStaticText(this, wxID_ANY, field.label), wxSizerFlags().CentreVertical());
        auto* const control =
            new wxTextCtrl(this, wxID_ANY, value ? ui(to_utf8(*value)) : wxString(), wxDefaultPosition,
                           wxDefaultSize, field.is_secret ? wxTE_PASSWORD : 0);
        if (!value) control->SetHint(ui(tr("(several values)")));
        control->SetName(wxControl::RemoveMnemonics(field.label));
        control->SetMinSize(FromDIP(wxSize(380, -1)));
        grid->Add(control, wxSizerFlags().Expand());
        shown_.push_back({field, control, control->GetValue()});
    }
    const auto connections = shared<std::int32_t>(jobs, [](const CJobNode& job) { return job.connections; });
    connections_before_ = connections.value_or(0);
    grid->Add(new wxStaticText(this, wxID_ANY, ui(tr("Co&nnections:"))), wxSizerFlags().CentreVertical());
    connections_ =
        new wxSpinCtrl(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, wxSP_ARROW_KEYS,
                       connections ? 1 : 0, most_connections, connections_before_);
    connections_->SetName(ui(tr("Connections")));
    grid->Add(connections_);
    auto* const all = new wxBoxSizer(wxVERTICAL);
    const auto count = static_cast<std::int64_t>(jobs.size());
    if (count > 1) {
        all->Add(new wxStaticText(this, wxID_ANY, ui(trn("%1 download", "%1 downloads", count))),
                 wxSizerFlags().Border(wxALL, FromDIP(10)));
    }
    all->Add(grid, wxSizerFlags(1).Expand().Border(wxALL, FromDIP(10)));
    all->Add(new wxStaticText(this, wxID_ANY, ui(tr("Changes take effect when a download is started next."))),
             wxSizerFlags().Border(wxALL, FromDIP(10)));
    all->Add(CreateSeparatedButtonSizer(wxOK | wxCANCEL), wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    name_buttons(*this);
    SetSizerAndFit(all);
    CentreOnParent();
}

JobEdit PropertiesDialog::edit() const {
    JobEdit edit;
    for (const Shown& one : shown_) {
        if (one.control->GetValue() != one.before) edit.*(one.field.edit) = wide_of(one.control->GetValue());
    }
    const int connections = connections_->GetValue();
    if (connections != connections_before_ && connections > 0) edit.connections = connections;
    return edit;
}

}  // namespace

bool edit_properties(wxWindow& parent, Engine& engine, const std::vector<Guid>& jobs,
                     std::vector<std::string>& faults) {
    std::vector<const CJobNode*> records;
    for (const Guid& job : jobs) {
        if (const CJobNode* const record = engine.find(job)) records.push_back(record);
    }
    if (records.empty()) return false;
    PropertiesDialog dialog(parent, records);
    if (dialog.ShowModal() != wxID_OK) return false;
    const JobEdit edit = dialog.edit();
    // Jobs may have gone while the dialog was open: operations go by their identities.
    for (const Guid& job : jobs) {
        const Done done = engine.change(job, edit);
        if (!done.ok() && done.fault != Done::Fault::no_job) faults.push_back(sentence_of(done));
    }
    return true;
}

}  // namespace vantlow
