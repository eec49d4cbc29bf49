#include "app/window/system.h"

#include <wx/msw/private.h>
#include <wx/notifmsg.h>
#include <wx/taskbar.h>

#include <cwchar>

namespace vantlow {

void make_rows_equal(wxWindow& /*table*/, bool /*clickable*/) {}

void redraw_rows(wxWindow& /*table*/) {}

void show_column_order(wxWindow& /*table*/, int /*position*/, bool /*shown*/, bool /*descending*/) {}

void show_gap(wxWindow& /*table*/, int /*row*/, int /*rows*/) {}

void keep_selection_for_drags(wxWindow& /*table*/) {}

void hear_end_of_drags(wxWindow& /*table*/, const std::function<void()>& /*ended*/) {}

void lay_out_before_show(wxTopLevelWindow& /*window*/) {}

void put_sign(wxMenuItem& /*item*/, const wxBitmapBundle& /*sign*/) {}

void hear_end_of_display(std::function<void()> /*gone*/) {}

// The dialog itself gets the letter, as the next message: in front of what is typed behind it, and not before
// the system has taken the key from its queue.
void let_letters_reach_all(wxTopLevelWindow& dialog) {
    dialog.Bind(wxEVT_CHAR_HOOK, [&dialog](wxKeyEvent& event) {
        constexpr LPARAM with_alt = 1 << 29;
        const wxWindow* const focused = wxWindow::FindFocus();
        const wxChar letter = event.GetUnicodeKey();
        const bool is_within_panel = focused != nullptr && focused->GetParent() != &dialog;
        if (event.GetModifiers() != wxMOD_ALT || letter <= ' ' || !is_within_panel) return event.Skip();
        PostMessageW(dialog.GetHWND(), WM_SYSCHAR, static_cast<WPARAM>(letter), with_alt);
        // The system is to see that Alt was not pressed alone, else its release opens the menu bar, of the
        // window behind where the letter has closed the dialog.
        DefWindowProcW(dialog.GetHWND(), WM_SYSKEYDOWN, event.GetRawKeyCode(), with_alt);
    });
}

void name_for_readers(wxWindow& control, const wxString& name) {
    control.SetName(name);
}

void* handle_of(wxWindow& window) {
    return window.GetHWND();
}

void show_notices_by(wxTaskBarIcon* tray) {
    wxNotificationMessage::UseTaskBarIcon(tray);
}

void close_of_system() noexcept {
    ::EndMenu();
    const auto cancel = [](HWND window, LPARAM) -> BOOL {
        constexpr int longest = 16;
        wchar_t kind[longest];
        const bool is_dialog = GetClassNameW(window, kind, longest) > 0 && std::wcscmp(kind, L"#32770") == 0;
        if (is_dialog && wxFindWinFromHandle(window) == nullptr)
            PostMessageW(window, WM_COMMAND, IDCANCEL, 0);
        return TRUE;
    };
    EnumThreadWindows(GetCurrentThreadId(), cancel, 0);
}

struct ClipboardWatch::State {
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
        auto* const state = reinterpret_cast<State*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        if (message == WM_CLIPBOARDUPDATE && state != nullptr) state->changed();
        return DefWindowProcW(window, message, first, second);
    }
    std::function<void()> changed;
    HWND window = nullptr;
};

// A window of its own that nobody sees hears of the clipboard.
ClipboardWatch::ClipboardWatch(wxWindow& /*window*/, std::function<void()> changed)
    : state_(std::make_unique<State>()) {
    state_->changed = std::move(changed);
    constexpr const wchar_t* name = L"VantlowClipboard";
    WNDCLASSEXW kind{};
    kind.cbSize = sizeof kind;
    kind.lpfnWndProc = &State::procedure;
    kind.hInstance = GetModuleHandleW(nullptr);
    kind.lpszClassName = name;
    RegisterClassExW(&kind);
    state_->window =
        CreateWindowExW(0, name, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, kind.hInstance, nullptr);
    if (state_->window == nullptr) return;
    SetWindowLongPtrW(state_->window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(state_.get()));
    AddClipboardFormatListener(state_->window);
}

ClipboardWatch::~ClipboardWatch() {
    if (state_->window == nullptr) return;
    RemoveClipboardFormatListener(state_->window);
    DestroyWindow(state_->window);
}

void take_direction(bool /*right_to_left*/) noexcept {}

void keep_plain_numbers() noexcept {}

}  // namespace vantlow
