#include "app/window/properties_dialog.h"

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/dialog.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include "app/window/confirm.h"
#include "app/window/model/job_properties.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/words.h"
#include "engine/schedule_texts.h"

namespace vantlow {
namespace {

struct Field {
    Property property;
    wxString label;
    wxString hint;
};

std::vector<Field> fields() {
    return {
        {Property::address, ui(tr("&Address:")), {}},
        {Property::mirrors, ui(tr("&Mirrors:")), {}},
        {Property::limit, ui(tr("Speed &limit:")), ui(tr("bytes a second: 500K, 2M"))},
        {Property::connections, ui(tr("Co&nnections:")), {}},
        {Property::comment, ui(tr("Comm&ent:")), {}},
        {Property::user, ui(tr("&User:")), {}},
        {Property::password, ui(tr("Pass&word:")), {}},
        {Property::referer, ui(tr("&Referer:")), {}},
        {Property::cookie, ui(tr("Cookies:")), {}},
        {Property::agent, ui(tr("User a&gent:")), {}},
        {Property::proxy, ui(tr("&Proxy:")), {}},
        {Property::start_time, ui(tr("Beg&in at:")), ui(tr("22:00, or 2026-11-27 22:00"))},
        {Property::stop_time, ui(tr("S&top at:")), {}},
    };
}

class PropertiesDialog : public wxDialog {
  public:
    PropertiesDialog(wxWindow& parent, JobProperties& properties, bool has_plan);

  private:
    void add(const Field& field, wxSizer& grid);
    void add_days(wxSizer& grid);
    void add_plan(wxSizer& all);
    void look();

    JobProperties& properties_;
    wxTextCtrl* first_ = nullptr;
    wxStaticText* note_ = nullptr;
};

PropertiesDialog::PropertiesDialog(wxWindow& parent, JobProperties& properties, bool has_plan)
    : wxDialog(&parent, wxID_ANY, ui(tr("Properties")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      properties_(properties) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    const auto count = static_cast<std::int64_t>(properties_.jobs().size());
    if (count > 1) {
        all->Add(new wxStaticText(this, wxID_ANY, ui(trn("%1 download", "%1 downloads", count))),
                 wxSizerFlags().Border(wxALL, FromDIP(10)));
    }
    auto* const grid = new wxFlexGridSizer(2, FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    for (const Field& field : fields()) {
        if (properties_.has(field.property)) add(field, *grid);
    }
    add_days(*grid);
    all->Add(grid, wxSizerFlags(1).Expand().Border(wxALL, FromDIP(10)));
    if (properties_.value(Property::plan) == "1" || has_plan) add_plan(*all);
    note_ =
        new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, wxST_ELLIPSIZE_END);
    all->Add(note_, wxSizerFlags().Expand().Border(wxALL, FromDIP(10)));
    all->Add(CreateSeparatedButtonSizer(wxOK | wxCANCEL), wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    finish_dialog(*this);
    look();
    if (first_ != nullptr) first_->SetFocus();
    SetSizerAndFit(all);
    CentreOnParent();
}

void PropertiesDialog::add(const Field& field, wxSizer& grid) {
    const auto& value = properties_.value(field.property);
    const long style = field.property == Property::password  ? wxTE_PASSWORD
                       : field.property == Property::mirrors ? wxTE_MULTILINE | wxTE_DONTWRAP
                                                             : 0;
    wxTextCtrl* const control = add_text(*this, grid, field.label, value ? ui(*value) : wxString(), style);
    // A field of several lines takes no hint.
    if (const wxString hint = value ? field.hint : ui(tr("(several values)")); !hint.empty())
        control->SetHint(hint);
    if (first_ == nullptr) first_ = control;
    control->SetMinSize(FromDIP(wxSize(430, field.property == Property::mirrors ? 60 : -1)));
    control->Bind(wxEVT_TEXT, [this, control, property = field.property](wxCommandEvent&) {
        properties_.set(property, utf8_of(control->GetValue()));
        look();
    });
}

void PropertiesDialog::add_days(wxSizer& grid) {
    grid.Add(new wxStaticText(this, wxID_ANY, ui(tr("Every week on:"))), wxSizerFlags().CentreVertical());
    const std::string days = properties_.value(Property::days).value_or("");
    grid.Add(make_weekday_boxes(*this, parse_weekdays(days).value_or(0),
                                [this](std::int32_t now) {
                                    properties_.set(Property::days, weekdays_text(now));
                                    look();
                                }),
             wxSizerFlags().Expand());
}

void PropertiesDialog::add_plan(wxSizer& all) {
    auto* const box = new wxCheckBox(this, wxID_ANY, ui(tr("Run &by the week plan")));
    box->SetValue(properties_.value(Property::plan) == "1");
    box->Bind(wxEVT_CHECKBOX, [this](wxCommandEvent& event) {
        properties_.set(Property::plan, event.IsChecked() ? "1" : "");
        look();
    });
    all.Add(box, wxSizerFlags().Border(wxLEFT | wxRIGHT, FromDIP(10)));
}

void PropertiesDialog::look() {
    const std::string fault = properties_.fault();
    note_->SetLabel(
        fault.empty()
            ? ui(tr("Addresses, the limit and times hold at once, the rest from the next start on."))
            : as_label(fault));
    if (wxWindow* const ok = FindWindow(wxID_OK)) ok->Enable(fault.empty());
}

}  // namespace

bool edit_properties(wxWindow& parent, Engine& engine, const std::vector<Guid>& jobs,
                     std::vector<std::string>& faults) {
    JobProperties properties(engine, jobs);
    if (properties.jobs().empty()) return false;
    if (PropertiesDialog(parent, properties, engine.week_plan().days != 0).ShowModal() != wxID_OK)
        return false;
    // Jobs may have gone while the dialog was open: operations go by their identities.
    for (const Guid& job : properties.jobs()) {
        const Done done = engine.change(job, properties.edit(job));
        if (!done.ok() && done.fault != Done::Fault::no_job) faults.push_back(sentence_of(done));
    }
    return true;
}

}  // namespace vantlow
