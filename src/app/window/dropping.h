// Links, text, HTML and files that are dropped or pasted, and the small window that takes them.
#pragma once

#include <wx/dnd.h>
#include <wx/frame.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/process/live_jobs.h"

namespace vantlow {

/// Something that holds links.
struct Dropped {
    std::vector<std::string> links;  ///< UTF-8, each once
    std::vector<std::string> files;  ///< full paths, UTF-8
    [[nodiscard]] bool empty() const noexcept { return links.empty() && files.empty(); }
};

using TakeDropped = std::function<void(const Dropped& dropped, const wxPoint& on_screen)>;

/// Where something is dragged over a window; none: it has left it, or is dropped.
using DraggedOver = std::function<void(const std::optional<wxPoint>& on_screen)>;

/// Hears of drops on a window, which owns it.
wxDropTarget* make_drop_target(wxWindow& window, TakeDropped take, DraggedOver over = {});

/// The links in the clipboard.
Dropped read_clipboard();

/// A window above all others, half transparent, that takes links and shows the speed. Moved with the mouse.
class DropZone : public wxFrame {
  public:
    DropZone(wxWindow* parent, const LiveJobs& live, TakeDropped take, std::function<void()> opened);
    /// Once a second at most: draws it anew, on a screen that is there.
    void look();

  private:
    void come_on_screen();
    void draw();
    void draw_ring(wxDC& dc, const wxPoint& middle, int edge, double part);
    const LiveJobs& live_;
    wxPoint held_;
};

}  // namespace vantlow
