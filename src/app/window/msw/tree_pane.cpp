#include "app/window/tree_pane.h"

#include <wx/treectrl.h>

#include <algorithm>

namespace vantlow {

struct TreePane::Control : public wxTreeCtrl {
    Control(TreePane& pane, const wxString& name)
        : wxTreeCtrl(&pane, wxID_ANY, wxDefaultPosition, wxDefaultSize,
                     wxTR_HAS_BUTTONS | wxTR_LINES_AT_ROOT | wxTR_HIDE_ROOT | wxTR_SINGLE),
          owner(pane) {
        SetName(name);
        Bind(wxEVT_TREE_SEL_CHANGED, [this](wxTreeEvent& event) {
            const std::size_t node = index_of(event.GetItem());
            if (!owner.is_silent() && node != TreeNode::none && owner.events_.selected)
                owner.events_.selected(node);
        });
        Bind(wxEVT_TREE_ITEM_MENU, [this](wxTreeEvent& event) {
            SelectItem(event.GetItem());
            // A key's event has the place of the node.
            if (owner.events_.menu) owner.events_.menu(ClientToScreen(event.GetPoint()));
        });
    }
    [[nodiscard]] std::size_t index_of(const wxTreeItemId& item) const {
        const auto found = std::find(items.begin(), items.end(), item);
        return found == items.end() ? TreeNode::none : static_cast<std::size_t>(found - items.begin());
    }

    TreePane& owner;
    std::vector<wxTreeItemId> items;
};

TreePane::TreePane(wxWindow* parent, const wxString& name, const std::vector<wxBitmapBundle>& pictures,
                   Events events)
    : NativePane(parent), events_(std::move(events)) {
    control_ = new Control(*this, name);
    wxVector<wxBitmapBundle> bundles;
    for (const wxBitmapBundle& one : pictures) bundles.push_back(one);
    control_->SetImages(bundles);
    fill_with(*control_);
}

TreePane::~TreePane() = default;

void TreePane::set_nodes(const std::vector<TreeNode>& nodes) {
    const Silence silence(*this);
    control_->DeleteAllItems();
    control_->items.clear();
    const wxTreeItemId root = control_->AddRoot(wxString());
    for (const TreeNode& node : nodes) {
        const wxTreeItemId parent = node.parent == TreeNode::none ? root : control_->items[node.parent];
        control_->items.push_back(control_->AppendItem(parent, node.label, node.picture));
    }
    control_->ExpandAll();
}

void TreePane::set_label(std::size_t node, const wxString& label) {
    if (control_->GetItemText(control_->items[node]) != label)
        control_->SetItemText(control_->items[node], label);
}

void TreePane::select(std::size_t node) {
    const Silence silence(*this);
    control_->SelectItem(control_->items[node]);
}

std::size_t TreePane::selected() const {
    const wxTreeItemId item = control_->GetSelection();
    return item.IsOk() ? control_->index_of(item) : TreeNode::none;
}

wxPoint TreePane::menu_place() const {
    wxRect room;
    const wxTreeItemId item = control_->GetSelection();
    if (!item.IsOk() || !control_->GetBoundingRect(item, room, true)) room = wxRect();
    return control_->ClientToScreen(wxPoint(room.x, room.y + room.height));
}

std::size_t TreePane::node_at(const wxPoint& point) const {
    int flags = 0;
    const wxTreeItemId item = control_->HitTest(point, flags);
    return item.IsOk() ? control_->index_of(item) : TreeNode::none;
}

}  // namespace vantlow
