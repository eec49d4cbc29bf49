#include "app/window/confirm.h"

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/dialog.h>
#include <wx/dirdlg.h>
#include <wx/panel.h>
#include <wx/sizer.h>
#include <wx/srchctrl.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/wrapsizer.h>

#include <memory>
#include <utility>

#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/pictures.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

constexpr int wrapped_at = 460;  // device-independent pixels

// Begins a dialog with a text that is no label.
wxSizer* start_with_text(wxDialog& dialog, const wxString& text) {
    auto* const label = new wxStaticText(&dialog, wxID_ANY, wxControl::EscapeMnemonics(text));
    label->Wrap(dialog.FromDIP(wrapped_at));
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(label, wxSizerFlags(1).Expand().Border(wxALL, dialog.FromDIP(16)));
    return all;
}

// Returns whether it is to be done; `ask_again` (null: no box) gets what the box says.
bool ask(wxWindow& parent, const wxString& title, const wxString& question, const wxString& action,
         bool* ask_again) {
    wxDialog dialog(&parent, wxID_ANY, title);
    auto* const all = start_with_text(dialog, question);
    wxCheckBox* box = nullptr;
    if (ask_again != nullptr) {
        box = new wxCheckBox(&dialog, wxID_ANY, ui(tr("&Do not ask again")));
        all->Add(box, wxSizerFlags().Border(wxLEFT | wxRIGHT, dialog.FromDIP(16)));
    }
    all->Add(dialog.CreateButtonSizer(wxOK | wxCANCEL),
             wxSizerFlags().Expand().Border(wxALL, dialog.FromDIP(10)));
    finish_dialog(dialog);
    if (wxWindow* const ok = dialog.FindWindow(wxID_OK)) {
        ok->SetLabel(action);
        ok->SetFocus();
    }
    dialog.SetSizerAndFit(all);
    dialog.CentreOnParent();
    const bool done = dialog.ShowModal() == wxID_OK;
    if (box != nullptr) *ask_again = !box->GetValue();
    return done;
}

}  // namespace

void finish_dialog(wxTopLevelWindow& dialog) {
    dialog.SetIcons(program_icons());
    let_letters_reach_all(dialog);
    const auto name = [&dialog](int id, const std::string& label) {
        if (wxWindow* const button = dialog.FindWindow(id)) button->SetLabel(ui(label));
    };
    name(wxID_OK, tr("&OK"));
    name(wxID_CANCEL, tr("&Cancel"));
    name(wxID_CLOSE, tr("&Close"));
}

wxSearchCtrl* make_search(wxWindow& parent, const wxString& name, const wxString& hint,
                          std::function<void()> changed) {
    auto* const field = new wxSearchCtrl(&parent, wxID_ANY);
    field->SetDescriptiveText(hint);
    name_for_readers(*field, name);
    field->ShowCancelButton(false);
    field->Bind(wxEVT_TEXT, [field, changed = std::move(changed)](wxCommandEvent&) {
        field->ShowCancelButton(!field->GetValue().empty());
        changed();
    });
    field->Bind(wxEVT_SEARCH_CANCEL, [field](wxCommandEvent&) { field->Clear(); });
    return field;
}

wxTextCtrl* add_text(wxWindow& parent, wxSizer& grid, const wxString& label, const wxString& value,
                     long style) {
    grid.Add(new wxStaticText(&parent, wxID_ANY, label), wxSizerFlags().CentreVertical());
    auto* const control = new wxTextCtrl(&parent, wxID_ANY, value, wxDefaultPosition, wxDefaultSize, style);
    name_for_readers(*control, wxControl::RemoveMnemonics(label));
    grid.Add(control, wxSizerFlags(1).Expand());
    return control;
}

wxTextCtrl* add_folder(wxWindow& parent, wxSizer& grid, const wxString& label, const std::u16string& folder,
                       const std::u16string& hint) {
    grid.Add(new wxStaticText(&parent, wxID_ANY, label), wxSizerFlags().CentreVertical());
    auto* const line = new wxBoxSizer(wxHORIZONTAL);
    auto* const text = new wxTextCtrl(&parent, wxID_ANY, ui(to_utf8(folder)));
    name_for_readers(*text, wxControl::RemoveMnemonics(label));
    text->SetHint(ui(shown(hint)));
    line->Add(text, wxSizerFlags(1).CentreVertical());
    auto* const browse = new wxButton(&parent, wxID_ANY, ui(tr("&Browse...")));
    browse->Bind(wxEVT_BUTTON, [&parent, text](wxCommandEvent&) {
        const wxString begin = text->GetValue().empty() ? text->GetHint() : text->GetValue();
        wxDirDialog dialog(&parent, ui(tr("Folder")), begin);
        if (dialog.ShowModal() == wxID_OK) text->SetValue(dialog.GetPath());
    });
    line->Add(browse, wxSizerFlags().Border(wxLEFT, parent.FromDIP(6)));
    grid.Add(line, wxSizerFlags().Expand());
    return text;
}

wxWindow* make_weekday_boxes(wxWindow& parent, std::int32_t days, std::function<void(std::int32_t)> changed) {
    auto* const panel = new wxPanel(&parent);
    auto* const row = new wxWrapSizer(wxHORIZONTAL);
    const auto now = std::make_shared<std::int32_t>(days);
    for (const auto& [bit, name] : weekdays()) {
        auto* const box = new wxCheckBox(panel, wxID_ANY, ui(name));
        box->SetValue((days & bit) != 0);
        box->Bind(wxEVT_CHECKBOX, [now, changed, bit = bit](wxCommandEvent& event) {
            *now = event.IsChecked() ? *now | bit : *now & ~bit;
            changed(*now);
        });
        row->Add(box, wxSizerFlags().Border(wxRIGHT, parent.FromDIP(10)));
    }
    panel->SetSizer(row);
    return panel;
}

wxString downloads_folder(const WindowModel& model) {
    return ui(to_utf8(model.engine.first_category()->folder));
}

void tell(wxWindow& parent, const wxString& title, const wxString& text) {
    wxDialog dialog(&parent, wxID_ANY, title);
    auto* const all = start_with_text(dialog, text);
    all->Add(dialog.CreateButtonSizer(wxCLOSE), wxSizerFlags().Expand().Border(wxALL, dialog.FromDIP(10)));
    finish_dialog(dialog);
    dialog.SetEscapeId(wxID_CLOSE);
    dialog.SetSizerAndFit(all);
    dialog.CentreOnParent();
    dialog.ShowModal();
}

bool confirm(wxWindow& parent, const wxString& title, const wxString& question, const wxString& action) {
    return ask(parent, title, question, action, nullptr);
}

bool confirm_as_set(wxWindow& parent, WindowModel& model, const NumberSetting& wish, const wxString& title,
                    const wxString& question, const wxString& action) {
    if (!model.settings.flag(wish)) return true;
    bool ask_again = true;
    if (!ask(parent, title, question, action, &ask_again)) return false;
    // A setting that cannot be written is asked about again.
    if (!ask_again) static_cast<void>(model.engine.set_setting(wish.section, wish.key, u"0"));
    return true;
}

}  // namespace vantlow
