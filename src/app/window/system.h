// Things that the toolkit lacks, made with the system's own means: gtk/system.cpp and msw/system.cpp are the
// only files of the window that know them.
#pragma once

#include <wx/toplevel.h>

#include <functional>
#include <memory>
#include <string>

class wxBitmapBundle;
class wxMenuItem;
class wxTaskBarIcon;

namespace vantlow {

/// GTK: tells a table that all its rows are equally high; else each of 100,000 is measured. Its columns must
/// have fixed widths. `clickable`: the headers answer to clicks.
void make_rows_equal(wxWindow& table, bool clickable);
/// GTK: draws all rows anew. A table keeps a picture of them, which the toolkit's own Refresh() only shows
/// again.
void redraw_rows(wxWindow& table);
/// GTK: the sign of order in a header.
void show_column_order(wxWindow& table, int position, bool shown, bool descending);

/// GTK: a line in front of a row (`row` == `rows`: behind the last one), where a drop would go; a negative
/// one: none.
void show_gap(wxWindow& table, int row, int rows);

/// GTK: the button that goes down on one of several selected rows leaves them selected, so that all of them
/// can be dragged; where it comes up again without a drag, that row alone is selected. Windows does so by
/// itself.
void keep_selection_for_drags(wxWindow& table);

/// GTK: calls `ended` (which outlives the table) when what was dragged out of it has been dropped, or not.
void hear_end_of_drags(wxWindow& table, const std::function<void()>& ended);

/// GTK: lays out a window that is about to be shown for the first time. Else its parts get their first places
/// within a single pixel, of which GTK complains.
void lay_out_before_show(wxTopLevelWindow& window);

/// GTK: a picture in front of the words of a menu's item, which is not in the menu yet. On Windows menus are
/// without pictures, as those of its own programs: where their colours have no transparency (Wine) they would
/// be black squares over the first letter.
void put_sign(wxMenuItem& item, const wxBitmapBundle& sign);

/// GTK on X11: calls `gone` when the connection to the display breaks, in the middle of whatever the toolkit
/// does then, which cannot go on: `gone` ends the process. Elsewhere the toolkit ends it.
void hear_end_of_display(std::function<void()> gone);

/// Windows: lets Alt and a letter reach every control of a dialog. The toolkit offers the key to the
/// innermost panel, where the system looks no further, and leads from a label there to no field.
void let_letters_reach_all(wxTopLevelWindow& dialog);

/// Gives a control the name by which screen readers call it; the toolkit's own is none for GTK.
void name_for_readers(wxWindow& control, const wxString& name);

/// The system's handle of a top-level window where other programs look for it (Windows); else null.
void* handle_of(wxWindow& window);

/// Windows: has notices come from this sign in the tray (null: from one of their own), which outlives them.
void show_notices_by(wxTaskBarIcon* tray);

/// Closes menus and the system's own dialogs (for files and folders) that are open, which have loops of their
/// own.
void close_of_system() noexcept;

/// Calls `changed` (this thread) whenever another program has put something into the clipboard, until it is
/// destroyed.
class ClipboardWatch {
  public:
    ClipboardWatch(wxWindow& window, std::function<void()> changed);
    ~ClipboardWatch();
    ClipboardWatch(const ClipboardWatch&) = delete;
    ClipboardWatch& operator=(const ClipboardWatch&) = delete;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/// GTK: has menus and its own dialogs laid out from right to left, or from left to right.
void take_direction(bool right_to_left) noexcept;

/// Keeps the form of numbers and messages that programs read, which the toolkit changes when it starts.
void keep_plain_numbers() noexcept;

}  // namespace vantlow
