#include "app/window/first_start.h"

#include <wx/checkbox.h>
#include <wx/dialog.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>

#include "app/process/known_settings.h"
#include "app/window/confirm.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/words.h"
#include "platform/browsers.h"

namespace vantlow {
namespace {

// Categories that shared the first one's folder go on sharing it.
Done set_folder(Engine& engine, const std::u16string& folder) {
    const std::u16string before = engine.first_category()->folder;
    if (folder == before) return {};
    std::vector<Guid> sharing;
    for (const CClassNode* const category : engine.categories()) {
        if (category->folder == before) sharing.push_back(category->identity);
    }
    for (const Guid& category : sharing) {
        if (Done done = engine.set_category_folder(category, folder); !done.ok()) return done;
    }
    return {};
}

}  // namespace

std::string ask_first(wxWindow& parent, DesktopHost& host, WindowModel& model) {
    wxDialog dialog(&parent, wxID_ANY, ui(tr("Welcome to Vantlow")), wxDefaultPosition, wxDefaultSize,
                    wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER);
    auto* const grid = new wxFlexGridSizer(2, dialog.FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    const std::u16string& before = model.engine.first_category()->folder;
    wxTextCtrl* const folder = add_folder(dialog, *grid, ui(tr("&Downloads go to:")), before, before);
    folder->SetMinSize(dialog.FromDIP(wxSize(340, -1)));
    auto* const browsers = new wxCheckBox(
        &dialog, wxID_ANY, ui(tr("Let &browsers hand downloads over, once they have Vantlow's extension")));
    // Whoever has none of them has nothing to choose.
    browsers->Show(std::ranges::any_of(known_browsers, has_browser));
    auto* const session =
        new wxCheckBox(&dialog, wxID_ANY, ui(tr("&Start Vantlow when I log in, out of sight")));
    session->SetValue(model.settings.flag(setting::start_with_session));
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(new wxStaticText(&dialog, wxID_ANY, ui(tr("The options can change this at any time."))),
             wxSizerFlags().Border(wxALL, dialog.FromDIP(12)));
    all->Add(grid, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT, dialog.FromDIP(12)));
    all->Add(browsers, wxSizerFlags().Border(wxLEFT | wxRIGHT | wxTOP, dialog.FromDIP(12)));
    all->Add(session, wxSizerFlags().Border(wxALL, dialog.FromDIP(12)));
    all->Add(dialog.CreateSeparatedButtonSizer(wxOK | wxCANCEL),
             wxSizerFlags().Expand().Border(wxALL, dialog.FromDIP(8)));
    finish_dialog(dialog);
    dialog.SetSizerAndFit(all);
    dialog.CentreOnParent();
    folder->SetFocus();
    folder->SelectAll();
    const bool done = dialog.ShowModal() == wxID_OK;
    const auto set = [&model](const NumberSetting& setting, bool on) {
        const std::string name =
            to_utf8(std::u16string(setting.section) + u"/" + std::u16string(setting.key));
        return sentence_of(model.settings.set(name, on ? "1" : "0"));
    };
    std::string fault = set(setting::welcomed, true);
    if (!done) return fault;
    if (const Done moved = set_folder(model.engine, wide_of(folder->GetValue())); !moved.ok())
        fault = sentence_of(moved);
    if (browsers->IsShown() && browsers->GetValue()) {
        const std::string complaint = host.run_command({"--quiet", "browser", "install"});
        if (!complaint.empty()) fault = complaint;
    }
    if (session->GetValue() == model.settings.flag(setting::start_with_session)) return fault;
    const std::string failed = set(setting::start_with_session, session->GetValue());
    return fault.empty() ? failed : fault;
}

}  // namespace vantlow
