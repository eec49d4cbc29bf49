#include "app/window/options_dialog.h"

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/choice.h>
#include <wx/dirdlg.h>
#include <wx/filedlg.h>
#include <wx/listbox.h>
#include <wx/scrolwin.h>
#include <wx/settings.h>
#include <wx/sizer.h>
#include <wx/spinctrl.h>
#include <wx/srchctrl.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <utility>

#include "app/window/confirm.h"
#include "app/window/drawn.h"
#include "app/window/model/translate.h"
#include "app/window/proxy_dialog.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "base/text.h"

namespace vantlow {
namespace {

constexpr int wrapped_at = 520;  // device-independent pixels

// The system's grey is for what cannot be used, and too light to be read at length.
wxColour quiet_ink() {
    const wxColour ink = wxSystemSettings::GetColour(wxSYS_COLOUR_WINDOWTEXT);
    const wxColour paper = wxSystemSettings::GetColour(wxSYS_COLOUR_WINDOW);
    const auto mixed = [](unsigned char one, unsigned char other) {
        return static_cast<unsigned char>((one * 2 + other) / 3);
    };
    return {mixed(ink.Red(), paper.Red()), mixed(ink.Green(), paper.Green()),
            mixed(ink.Blue(), paper.Blue())};
}

}  // namespace

OptionsDialog::OptionsDialog(wxWindow& parent, SettingPages& pages, ProxyList proxies)
    : wxDialog(&parent, wxID_ANY, ui(tr("Options")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      settings_(pages),
      proxies_(std::move(proxies)),
      pages_(pages.pages()) {
    auto* const left = new wxBoxSizer(wxVERTICAL);
    search_ = make_search(*this, ui(tr("Search the options")), ui(tr("Search the options")),
                          [this] { show_page(); });
    left->Add(search_, wxSizerFlags().Expand().Border(wxBOTTOM, FromDIP(6)));
    titles_ = new wxListBox(this, wxID_ANY);
    name_for_readers(*titles_, ui(tr("Pages")));
    for (const SettingPage& page : pages_) titles_->Append(ui(page.title));
    titles_->SetMinSize(FromDIP(wxSize(180, 300)));
    left->Add(titles_, wxSizerFlags(1).Expand());
    room_ =
        new wxScrolledWindow(this, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxVSCROLL | wxTAB_TRAVERSAL);
    room_->SetScrollRate(0, FromDIP(12));
    room_->SetMinSize(FromDIP(wxSize(600, 400)));
    auto* const both = new wxBoxSizer(wxHORIZONTAL);
    both->Add(left, wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    both->Add(room_, wxSizerFlags(1).Expand().Border(wxALL, FromDIP(8)));
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(both, wxSizerFlags(1).Expand());
    all->Add(CreateSeparatedButtonSizer(wxCLOSE), wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    finish_dialog(*this);
    SetSizerAndFit(all);
    CentreOnParent();
    SetEscapeId(wxID_CLOSE);
    titles_->Bind(wxEVT_LISTBOX, [this](wxCommandEvent&) {
        search_->ChangeValue(wxString());
        search_->ShowCancelButton(false);
        show_page();
    });
    if (!pages_.empty()) titles_->SetSelection(0);
    show_page();
    titles_->SetFocus();
}

void OptionsDialog::show_page() {
    if (!search_->GetValue().empty()) return show_lines(settings_.find(utf8_of(search_->GetValue())));
    const int page = titles_->GetSelection();
    pages_ = settings_.pages();
    if (page >= 0 && static_cast<std::size_t>(page) < pages_.size())
        show_lines(pages_[static_cast<std::size_t>(page)].lines);
}

void OptionsDialog::show_lines(const std::vector<SettingLine>& lines) {
    inquiry_.reset();
    test_says_ = nullptr;
    room_->Freeze();
    room_->DestroyChildren();
    auto* const all = new wxBoxSizer(wxVERTICAL);
    for (const SettingLine& line : lines) add_line(*all, line);
    if (lines.empty()) all->Add(new wxStaticText(room_, wxID_ANY, ui(tr("No option holds these words."))));
    auto* const beside_scroll_bar = new wxBoxSizer(wxVERTICAL);
    beside_scroll_bar->Add(all, wxSizerFlags(1).Expand().Border(wxRIGHT, FromDIP(8)));
    room_->SetSizer(beside_scroll_bar);
    room_->Layout();
    room_->Thaw();
    // A scroll bar that came while Windows was told to draw nothing would never be drawn.
    room_->FitInside();
    room_->Layout();
    room_->Scroll(0, 0);
    room_->Refresh();
}

void OptionsDialog::add_line(wxSizer& all, const SettingLine& line) {
    wxWindow* editor = nullptr;
    if (line.editor != SettingLine::Editor::yes_no) {
        auto* const label = new wxStaticText(room_, wxID_ANY, as_label(line.label));
        label->Wrap(FromDIP(wrapped_at));
        all.Add(label, wxSizerFlags().Expand());
    }
    auto* const row = new wxBoxSizer(wxHORIZONTAL);
    editor = make_editor(line);
    name_for_readers(*editor, ui(line.label));
    editor->SetToolTip(ui(line.setting.name()));
    row->Add(editor, wxSizerFlags(1).CentreVertical());
    const bool is_path =
        line.editor == SettingLine::Editor::folder || line.editor == SettingLine::Editor::file;
    if (is_path) {
        auto* const browse = new wxButton(room_, wxID_ANY, ui(tr("Browse...")));
        browse->Bind(wxEVT_BUTTON, [this, line](wxCommandEvent&) {
            const bool folder = line.editor == SettingLine::Editor::folder;
            const wxString chosen =
                folder ? wxDirSelector(ui(tr("Folder")), ui(line.value), 0, wxDefaultPosition, this)
                       : wxFileSelector(ui(tr("File")), wxString(), ui(line.value), wxString(), "*",
                                        wxFD_OPEN, this);
            if (!chosen.empty()) set(line, utf8_of(chosen));
            CallAfter([this] { show_page(); });
        });
        row->Add(browse, wxSizerFlags().Border(wxLEFT, FromDIP(6)));
    }
    if (line.is_set) {
        auto* const back = new wxButton(room_, wxID_ANY, ui(tr("Default")));
        back->SetToolTip(ui(tr("Go back to the default")));
        back->Bind(wxEVT_BUTTON, [this, name = line.setting.name()](wxCommandEvent&) {
            settings_.unset(name);
            CallAfter([this] { show_page(); });
        });
        row->Add(back, wxSizerFlags().CentreVertical().Border(wxLEFT, FromDIP(6)));
    }
    all.Add(row, wxSizerFlags().Expand().Border(wxTOP, FromDIP(2)));
    if (!line.help.empty()) add_help(all, as_label(line.help));
    if (line.setting.name() == "Connection/Proxy") add_proxy_test(*row, all);
    all.AddSpacer(FromDIP(10));
}

void OptionsDialog::add_help(wxSizer& all, const wxString& text) {
    auto* const help = new wxStaticText(room_, wxID_ANY, text);
    help->SetForegroundColour(quiet_ink());
    help->Wrap(FromDIP(wrapped_at));
    all.Add(help, wxSizerFlags().Expand());
}

// The proxy is tested as it is set, which a field that loses the focus has done.
void OptionsDialog::add_proxy_test(wxSizer& row, wxSizer& all) {
    auto* const test = new wxButton(room_, wxID_ANY, ui(tr("Test")));
    test_says_ = new wxStaticText(room_, wxID_ANY, wxString());
    auto* const list = new wxButton(room_, wxID_ANY, ui(tr("List...")));
    list->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) {
        ProxyDialog(*this, proxies_).ShowModal();
        CallAfter([this] { show_page(); });
    });
    row.Add(list, wxSizerFlags().Border(wxLEFT, FromDIP(6)));
    row.Add(test, wxSizerFlags().Border(wxLEFT, FromDIP(6)));
    all.Add(test_says_, wxSizerFlags().Expand().Border(wxTOP, FromDIP(4)));
    test_says_->Hide();
    test->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) {
        asked_ = std::chrono::steady_clock::now();
        inquiry_ = settings_.test_proxy([this] { CallAfter([this] { show_proxy_test(); }); });
        show_proxy_test();
    });
}

void OptionsDialog::show_proxy_test() {
    if (test_says_ == nullptr) return;
    const auto answer = inquiry_ ? inquiry_->answer() : std::nullopt;
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - asked_);
    test_says_->SetLabel(as_label(SettingPages::sentence_of_test(answer, elapsed)));
    test_says_->Wrap(FromDIP(wrapped_at));
    test_says_->Show();
    room_->FitInside();
    room_->Layout();
}

wxWindow* OptionsDialog::make_editor(const SettingLine& line) {
    using Editor = SettingLine::Editor;
    if (line.editor == Editor::yes_no) {
        // A check box does not break its label by itself.
        const int beside_button = line.is_set ? 110 : 0;
        auto* const box = new wxCheckBox(
            room_, wxID_ANY, wrapped(*room_, as_label(line.label), FromDIP(wrapped_at - beside_button)));
        box->SetValue(line.value != "0");
        box->Bind(wxEVT_CHECKBOX,
                  [this, line](wxCommandEvent& event) { set(line, event.IsChecked() ? "1" : "0"); });
        return box;
    }
    if (line.editor == Editor::choice) {
        auto* const choice = new wxChoice(room_, wxID_ANY);
        for (std::size_t i = 0; i < line.choices.size(); ++i) {
            choice->Append(ui(line.choices[i].second));
            if (line.choices[i].first == line.value) choice->SetSelection(static_cast<int>(i));
        }
        choice->Bind(wxEVT_CHOICE, [this, line](wxCommandEvent& event) {
            const int chosen = event.GetSelection();
            if (chosen >= 0) set(line, line.choices[static_cast<std::size_t>(chosen)].first);
        });
        return choice;
    }
    if (line.editor == Editor::weekdays) {
        const auto days = static_cast<std::int32_t>(parse_decimal(line.value).value_or(0));
        return make_weekday_boxes(*room_, days,
                                  [this, line](std::int32_t now) { set(line, std::to_string(now)); });
    }
    // A number may have more digits than a spin control takes, and "out of bounds" is better said than bent.
    auto* const text =
        new wxTextCtrl(room_, wxID_ANY, ui(line.value), wxDefaultPosition, wxDefaultSize,
                       wxTE_PROCESS_ENTER | (line.editor == Editor::password ? wxTE_PASSWORD : 0));
    const auto take = [this, text, line] {
        if (utf8_of(text->GetValue()) != line.value || text->IsModified())
            set(line, utf8_of(text->GetValue()));
        text->SetModified(false);
    };
    text->Bind(wxEVT_KILL_FOCUS, [take, text](wxFocusEvent& event) {
        event.Skip();
        if (text->IsModified()) take();
    });
    text->Bind(wxEVT_TEXT_ENTER, [take](wxCommandEvent&) { take(); });
    return text;
}

void OptionsDialog::set(const SettingLine& line, const std::string& value) {
    const SettingPages::Fault fault = settings_.set(line.setting.name(), value);
    if (fault == SettingPages::Fault::none) return;
    wxString text = ui(sentence_of(fault));
    CallAfter([this, text, label = ui(line.label)] {
        tell(*this, ui(tr("Options")), label + "\n\n" + text);
        show_page();
    });
}

}  // namespace vantlow
