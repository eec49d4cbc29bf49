// The panel around a control of the system's own, behind which gtk/ and msw/ hide their differences.
#pragma once

#include <wx/panel.h>

#include <functional>

class wxStaticText;

namespace vantlow {

/// Is filled by one control and reports its selection: once for all changes of one gesture, and never for
/// those that the program makes.
class NativePane : public wxPanel {
  public:
    ~NativePane() override = default;
    NativePane(const NativePane&) = delete;
    NativePane& operator=(const NativePane&) = delete;
    [[nodiscard]] wxWindow& control() const noexcept { return *filling_; }
    /// A sentence above the control: the reason why it is empty. An empty one is not shown.
    void set_note(const wxString& note);

  protected:
    explicit NativePane(wxWindow* parent) : wxPanel(parent) {}
    /// The control, a child of this panel, takes all of its room.
    void fill_with(wxWindow& control);
    /// To be called for each change of the selection that the control tells of.
    void note_selection(const std::function<void()>& tell);
    /// Has the keys for context menus (Menu, Shift+F10) call `open`, which outlives the panel, where the
    /// control does not know them.
    void open_menu_by_key(const std::function<void()>& open);
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
    wxStaticText* note_ = nullptr;
    bool selection_noted_ = false;
    bool silent_ = false;
};

}  // namespace vantlow
