// The panel around a control of the system's own, behind which gtk/ and msw/ hide their differences.
#pragma once

#include <wx/panel.h>

#include <functional>

class wxStaticText;

namespace vantlow {

/// Is filled by one control and reports its selection: once for all changes of one gesture, and never for
/// those that the program makes.
/// Opens a context menu at a point of the screen; wxDefaultPosition: at the pointer.
using OpenMenu = std::function<void(const wxPoint& on_screen)>;

/// Such a point as a window's own menus want it.
wxPoint place_of_menu(const wxWindow& window, const wxPoint& on_screen);

class NativePane : public wxPanel {
  public:
    ~NativePane() override = default;
    NativePane(const NativePane&) = delete;
    NativePane& operator=(const NativePane&) = delete;
    [[nodiscard]] wxWindow& control() const noexcept { return *filling_; }
    /// Sentences above the control, in as many lines as they need: the reason why it is empty. Empty ones are
    /// not shown.
    void set_note(const wxString& note);

  protected:
    explicit NativePane(wxWindow* parent) : wxPanel(parent) {}
    /// The control, a child of this panel, takes all of its room.
    void fill_with(wxWindow& control);
    /// To be called for each change of the selection that the control tells of.
    void note_selection(const std::function<void()>& tell);
    /// Has the keys for context menus (Menu, Shift+F10) call `open`, which outlives the panel, with
    /// menu_place(), where the control does not know them.
    void open_menu_by_key(const OpenMenu& open);
    /// Where a menu opens that a key asks for: below what is selected, or in the control's corner.
    [[nodiscard]] virtual wxPoint menu_place() const = 0;
    [[nodiscard]] bool is_silent() const noexcept { return silent_; }

    /// While it lives, the selection is changed by the program.
    class Silence {
      public:
        explicit Silence(NativePane& pane) noexcept : pane_(pane) { pane_.silent_ = true; }
        ~Silence() { pane_.silent_ = false; }
        Silence(const Silence&) = delete;
        Silence& operator=(const Silence&) = delete;

      private:
        NativePane& pane_;
    };

  private:
    wxWindow* filling_ = nullptr;
    void lay_out_note();

    wxStaticText* note_ = nullptr;
    wxString said_;  ///< the note without its line breaks
    bool selection_noted_ = false;
    bool silent_ = false;
};

}  // namespace vantlow
