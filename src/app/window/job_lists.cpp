#include "app/window/job_lists.h"

#include <wx/checklst.h>
#include <wx/dialog.h>
#include <wx/filedlg.h>
#include <wx/radiobox.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

#include "app/window/confirm.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "platform/file.h"
#include "store/job_list.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_list = 256 * 1024 * 1024;

std::string failed_on(const std::u16string& path, const FileError& error) {
    return shown(path) + ": " + error.text();
}

std::string jobs_text(std::size_t count) {
    return trn("%1 download", "%1 downloads", static_cast<std::int64_t>(count));
}

/// The jobs that are to be exported.
struct ExportForm {
    bool only_shown = false;  ///< those of the list; else all
    JobListFormat format;
};

// A column of the file in the words of a person.
std::string text_of_column(std::string_view name) {
    if (name == "Filename") return tr("File name");
    if (name == "Locally") return tr("Whether this computer's own copy serves");
    if (name == "Username") return tr("User name");
    if (name == "StartMode") return tr("How it starts");
    if (name == "Threads") return tr("Connections");
    if (name == "UTF-8") return tr("Whether the address is UTF-8");
    if (name == "Agent") return tr("User agent");
    return tr(name);
}

std::optional<ExportForm> ask_what(wxWindow& parent, const WindowModel& model) {
    wxDialog dialog(&parent, wxID_ANY, ui(tr("Export downloads")), wxDefaultPosition, wxDefaultSize,
                    wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER);
    const wxString which[] = {ui(tr("&All downloads")),
                              ui(tr("Those of the &list")) + " (" + ui(jobs_text(model.rows.size())) + ")"};
    auto* const choice =
        new wxRadioBox(&dialog, wxID_ANY, ui(tr("Downloads")), wxDefaultPosition, wxDefaultSize, 2, which, 1);
    auto* const columns = new wxCheckListBox(&dialog, wxID_ANY);
    name_for_readers(*columns, ui(tr("More columns")));
    for (const std::string_view name : attribute_names) {
        const int at = columns->Append(ui(text_of_column(name)));
        // A list that goes to others names no passwords unless that is wanted.
        columns->Check(static_cast<unsigned>(at), name != "Username" && name != "Password");
    }
    columns->SetMinSize(dialog.FromDIP(wxSize(360, 260)));
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(choice, wxSizerFlags().Expand().Border(wxALL, dialog.FromDIP(10)));
    all->Add(new wxStaticText(&dialog, wxID_ANY, ui(tr("With these &columns beside the addresses:"))),
             wxSizerFlags().Border(wxLEFT | wxRIGHT, dialog.FromDIP(10)));
    all->Add(columns, wxSizerFlags(1).Expand().Border(wxALL, dialog.FromDIP(10)));
    all->Add(dialog.CreateSeparatedButtonSizer(wxOK | wxCANCEL),
             wxSizerFlags().Expand().Border(wxALL, dialog.FromDIP(8)));
    finish_dialog(dialog);
    if (wxWindow* const ok = dialog.FindWindow(wxID_OK)) ok->SetLabel(ui(tr("&Export...")));
    dialog.SetSizerAndFit(all);
    dialog.CentreOnParent();
    if (dialog.ShowModal() != wxID_OK) return std::nullopt;
    ExportForm form;
    form.only_shown = choice->GetSelection() == 1;
    for (unsigned i = 0; i < columns->GetCount(); ++i) {
        if (columns->IsChecked(i)) form.format.fields.push_back(job_list_field(attribute_names_wide[i]));
    }
    return form;
}

wxString list_files() {
    return ui(tr("Job lists")) + " (*.csv;*.txt)|*.csv;*.txt|" + ui(tr("All files")) + " (*)|*";
}

}  // namespace

std::string import_jobs(wxWindow& parent, WindowModel& model, const Guid& category) {
    wxFileDialog dialog(&parent, ui(tr("Import downloads")), downloads_folder(model), wxString(),
                        list_files(), wxFD_OPEN | wxFD_FILE_MUST_EXIST);
    if (dialog.ShowModal() != wxID_OK) return {};
    const std::u16string path = wide_of(dialog.GetPath());
    std::vector<std::byte> bytes;
    if (const FileError error = read_file(path, largest_list, bytes); !error.ok())
        return failed_on(path, error);
    JobList list = read_job_list(bytes);
    const std::size_t filed = model.engine.file_list(std::move(list.jobs), category).size();
    std::string said = fill(tr("Imported: %1."), {jobs_text(filed)});
    if (list.skipped.empty()) return said;
    said +=
        " " +
        trn("%1 line was skipped:", "%1 lines were skipped:", static_cast<std::int64_t>(list.skipped.size()));
    return said + " " +
           fill(tr("line %1: %2"),
                {std::to_string(list.skipped.front().line), shown(to_utf16(list.skipped.front().text))});
}

std::string export_jobs(wxWindow& parent, WindowModel& model) {
    const auto form = ask_what(parent, model);
    if (!form) return {};
    wxFileDialog dialog(&parent, ui(tr("Export downloads")), downloads_folder(model), "vantlow.csv",
                        list_files(), wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    if (dialog.ShowModal() != wxID_OK) return {};
    std::vector<const CJobNode*> jobs;
    if (form->only_shown) {
        for (std::size_t row = 0; row < model.rows.size(); ++row) {
            if (const CJobNode* const job = model.engine.find(model.rows.at(row))) jobs.push_back(job);
        }
    } else {
        jobs = model.engine.jobs_below(nullptr);
    }
    const std::string text = write_job_list(jobs, form->format);
    const std::u16string path = wide_of(dialog.GetPath());
    // The list may hold passwords.
    const FileError error = write_file_atomically(path, std::as_bytes(std::span(text)), Privacy::owner_only);
    if (!error.ok()) return failed_on(path, error);
    return fill(tr("Exported: %1."), {jobs_text(jobs.size())});
}

}  // namespace vantlow
