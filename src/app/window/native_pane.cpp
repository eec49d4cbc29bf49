#include "app/window/native_pane.h"

#include <wx/sizer.h>

namespace vantlow {

void NativePane::fill_with(wxWindow& control) {
    filling_ = &control;
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(&control, wxSizerFlags(1).Expand());
    SetSizer(all);
}

void NativePane::note_selection(const std::function<void()>& tell) {
    if (silent_ || selection_noted_ || !tell) return;
    selection_noted_ = true;
    CallAfter([this, &tell] {
        selection_noted_ = false;
        tell();
    });
}

}  // namespace vantlow
