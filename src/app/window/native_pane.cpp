#include "app/window/native_pane.h"

#include <wx/sizer.h>
#include <wx/stattext.h>

#include <algorithm>

namespace vantlow {
namespace {

constexpr int note_border = 6;  // device-independent pixels

}  // namespace

wxPoint place_of_menu(const wxWindow& window, const wxPoint& on_screen) {
    return on_screen == wxDefaultPosition ? on_screen : window.ScreenToClient(on_screen);
}

void NativePane::fill_with(wxWindow& control) {
    filling_ = &control;
    // GTK gives the control its place before the panel has one of its own, and wants room for headers and
    // scroll bars from the beginning.
    SetSize(FromDIP(wxSize(120, 120)));
    note_ =
        new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, wxST_NO_AUTORESIZE);
    note_->Hide();
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(note_, wxSizerFlags().Expand().Border(wxALL, FromDIP(note_border)));
    all->Add(&control, wxSizerFlags(1).Expand());
    SetSizer(all);
    Bind(wxEVT_SIZE, [this, width = 0](wxSizeEvent& event) mutable {
        if (event.GetSize().x != width && !said_.empty()) lay_out_note();
        width = event.GetSize().x;
        event.Skip();
    });
}

void NativePane::set_note(const wxString& note) {
    if (said_ == note) return;
    said_ = note;
    note_->Show(!note.empty());
    lay_out_note();
    Layout();
}

void NativePane::lay_out_note() {
    note_->SetLabel(said_);
    note_->Wrap(std::max(GetClientSize().x - 2 * FromDIP(note_border), FromDIP(60)));
    note_->InvalidateBestSize();
}

void NativePane::note_selection(const std::function<void()>& tell) {
    if (silent_ || selection_noted_ || !tell) return;
    selection_noted_ = true;
    CallAfter([this, &tell] {
        selection_noted_ = false;
        tell();
    });
}

void NativePane::open_menu_by_key(const OpenMenu& open) {
    Bind(wxEVT_CHAR_HOOK, [this, &open](wxKeyEvent& event) {
        const int key = event.GetKeyCode();
        const bool is_asked = key == WXK_WINDOWS_MENU || key == WXK_MENU ||
                              (key == WXK_F10 && event.GetModifiers() == wxMOD_SHIFT);
        if (!is_asked || !open) return event.Skip();
        open(menu_place());
    });
}

}  // namespace vantlow
