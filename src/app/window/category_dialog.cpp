#include "app/window/category_dialog.h"

#include <wx/dialog.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include "app/window/confirm.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/words.h"

namespace vantlow {

std::optional<CategoryForm> ask_category(wxWindow& window, const std::string& title,
                                         const CategoryForm& before, const std::u16string* folder_above) {
    wxDialog dialog(&window, wxID_ANY, ui(title), wxDefaultPosition, wxDefaultSize,
                    wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER);
    auto* const grid = new wxFlexGridSizer(2, dialog.FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    wxTextCtrl* const name = add_text(dialog, *grid, ui(tr("&Name:")), ui(shown(before.name)));
    name->SetMinSize(dialog.FromDIP(wxSize(320, -1)));
    wxTextCtrl* const folder = add_folder(dialog, *grid, ui(tr("&Folder:")), before.folder,
                                          folder_above != nullptr ? *folder_above : before.folder);
    wxTextCtrl* rule = nullptr;
    if (folder_above != nullptr) {
        rule = add_text(dialog, *grid, ui(tr("&Rule:")), ui(before.rule));
        rule->SetHint(".iso .tar.gz example.org");
    }
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(grid, wxSizerFlags(1).Expand().Border(wxALL, dialog.FromDIP(10)));
    if (rule != nullptr) {
        auto* const note = new wxStaticText(
            &dialog, wxID_ANY,
            ui(tr(
                "New downloads without a category of their own are filed here where their names have one of "
                "these endings, or their addresses one of these servers.")));
        note->Wrap(dialog.FromDIP(420));
        all->Add(note, wxSizerFlags().Border(wxLEFT | wxRIGHT, dialog.FromDIP(10)));
    }
    all->Add(dialog.CreateSeparatedButtonSizer(wxOK | wxCANCEL),
             wxSizerFlags().Expand().Border(wxALL, dialog.FromDIP(8)));
    finish_dialog(dialog);
    if (rule != nullptr) {
        rule->Bind(wxEVT_TEXT, [&dialog, rule](wxCommandEvent&) {
            if (wxWindow* const ok = dialog.FindWindow(wxID_OK))
                ok->Enable(parse_category_rule(utf8_of(rule->GetValue())).has_value());
        });
    }
    dialog.SetSizerAndFit(all);
    dialog.CentreOnParent();
    name->SetFocus();
    name->SelectAll();
    if (dialog.ShowModal() != wxID_OK) return std::nullopt;
    // A name that cannot be shown as it is stays, unless another one was typed.
    const wxString typed = name->GetValue();
    return CategoryForm{typed == ui(shown(before.name)) ? before.name : wide_of(typed),
                        wide_of(folder->GetValue()),
                        rule != nullptr ? utf8_of(rule->GetValue()) : std::string()};
}

}  // namespace vantlow
