#include "app/window/native_pane.h"

#include <wx/sizer.h>
#include <wx/stattext.h>

namespace vantlow {

void NativePane::fill_with(wxWindow& control) {
    filling_ = &control;
    // GTK gives the control its place before the panel has one of its own, and wants room for headers and
    // scroll bars from the beginning.
    SetSize(FromDIP(wxSize(120, 120)));
    note_ = new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize,
                             wxST_NO_AUTORESIZE | wxST_ELLIPSIZE_END);
    note_->Hide();
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(note_, wxSizerFlags().Expand().Border(wxALL, FromDIP(6)));
    all->Add(&control, wxSizerFlags(1).Expand());
    SetSizer(all);
}

void NativePane::set_note(const wxString& note) {
    if (note_->GetLabel() != note) note_->SetLabel(note);
    if (note_->IsShown() != note.empty()) return;
    note_->Show(!note.empty());
    Layout();
}

void NativePane::note_selection(const std::function<void()>& tell) {
    if (silent_ || selection_noted_ || !tell) return;
    selection_noted_ = true;
    CallAfter([this, &tell] {
        selection_noted_ = false;
        tell();
    });
}

void NativePane::open_menu_by_key(const std::function<void()>& open) {
    Bind(wxEVT_CHAR_HOOK, [&open](wxKeyEvent& event) {
        const int key = event.GetKeyCode();
        const bool is_asked = key == WXK_WINDOWS_MENU || key == WXK_MENU ||
                              (key == WXK_F10 && event.GetModifiers() == wxMOD_SHIFT);
        if (!is_asked || !open) return event.Skip();
        open();
    });
}

}  // namespace vantlow
