// A tree of labels over the system's own: a data view's tree on GTK (gtk/), the Win32 tree view (msw/).
#pragma once

#include <wx/bmpbndl.h>

#include <functional>
#include <vector>

#include "app/window/native_pane.h"

namespace vantlow {

struct TreeNode {
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    wxString label;
    std::size_t parent = none;  ///< its index; always before the node itself
    int picture = 0;
};

class TreePane : public NativePane {
  public:
    struct Events {
        std::function<void(std::size_t node)> selected;
        OpenMenu menu;
    };
    TreePane(wxWindow* parent, const wxString& name, const std::vector<wxBitmapBundle>& pictures,
             Events events);
    ~TreePane() override;

    /// Shows other nodes, all unfolded. Nothing is selected afterwards.
    void set_nodes(const std::vector<TreeNode>& nodes);
    void set_label(std::size_t node, const wxString& label);
    void select(std::size_t node);
    [[nodiscard]] std::size_t selected() const;  ///< TreeNode::none: nothing
    /// The node at a point of control(); TreeNode::none.
    [[nodiscard]] std::size_t node_at(const wxPoint& point) const;

    struct Control;

  private:
    [[nodiscard]] wxPoint menu_place() const override;

    Events events_;
    Control* control_ = nullptr;
    friend struct Control;
};

}  // namespace vantlow
