// The tree of views: categories with their counts, and jobs by state, kind and day.
#pragma once

#include <functional>

#include "app/window/model/window_model.h"
#include "app/window/tree_pane.h"

namespace vantlow {

class ViewPane : public wxPanel {
  public:
    struct Events {
        std::function<void()> selected;
        OpenMenu menu;
    };
    ViewPane(wxWindow* parent, ViewTree& tree, Events events);
    ~ViewPane() override;

    [[nodiscard]] const View& view() const noexcept { return view_; }
    void select(const View& view);
    /// The category under a point of the screen; null where there is none.
    [[nodiscard]] const View* category_at(const wxPoint& on_screen) const;
    [[nodiscard]] TreePane& tree() noexcept { return *pane_; }

  private:
    [[nodiscard]] wxString label_of(std::size_t node) const;
    void rebuild();

    ViewTree& tree_;
    Events events_;
    View view_;
    TreePane* pane_ = nullptr;
};

}  // namespace vantlow
