#include "app/window/tree_pane.h"

#include <wx/dataview.h>

#include <algorithm>

#include "app/window/system.h"

namespace vantlow {

struct TreePane::Control : public wxDataViewTreeCtrl {
    Control(TreePane& pane, const wxString& name)
        : wxDataViewTreeCtrl(&pane, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxDV_SINGLE | wxDV_NO_HEADER),
          owner(pane) {
        name_for_readers(*this, name);
        Bind(wxEVT_DATAVIEW_SELECTION_CHANGED, [this](wxDataViewEvent&) {
            const std::size_t node = owner.selected();
            if (!owner.is_silent() && node != TreeNode::none && owner.events_.selected)
                owner.events_.selected(node);
        });
        Bind(wxEVT_DATAVIEW_ITEM_CONTEXT_MENU, [this](wxDataViewEvent&) {
            if (owner.events_.menu) owner.events_.menu(wxDefaultPosition);
        });
        Bind(wxEVT_DATAVIEW_ITEM_START_EDITING, [](wxDataViewEvent& event) { event.Veto(); });
    }
    [[nodiscard]] std::size_t index_of(const wxDataViewItem& item) const {
        const auto found = std::find(items.begin(), items.end(), item);
        return found == items.end() ? TreeNode::none : static_cast<std::size_t>(found - items.begin());
    }

    TreePane& owner;
    std::vector<wxDataViewItem> items;
};

TreePane::TreePane(wxWindow* parent, const wxString& name, const std::vector<wxBitmapBundle>& pictures,
                   Events events)
    : NativePane(parent), events_(std::move(events)) {
    control_ = new Control(*this, name);
    wxVector<wxBitmapBundle> bundles;
    for (const wxBitmapBundle& one : pictures) bundles.push_back(one);
    control_->SetImages(bundles);
    fill_with(*control_);
    open_menu_by_key(events_.menu);
}

TreePane::~TreePane() = default;

void TreePane::set_nodes(const std::vector<TreeNode>& nodes) {
    const Silence silence(*this);
    control_->DeleteAllItems();
    control_->items.clear();
    for (const TreeNode& node : nodes) {
        const wxDataViewItem parent =
            node.parent == TreeNode::none ? wxDataViewItem() : control_->items[node.parent];
        control_->items.push_back(control_->AppendContainer(parent, node.label, node.picture, node.picture));
    }
    for (const wxDataViewItem& item : control_->items) control_->Expand(item);
}

void TreePane::set_label(std::size_t node, const wxString& label) {
    if (control_->GetItemText(control_->items[node]) != label)
        control_->SetItemText(control_->items[node], label);
}

void TreePane::select(std::size_t node) {
    const Silence silence(*this);
    control_->Select(control_->items[node]);
}

std::size_t TreePane::selected() const {
    const wxDataViewItem item = control_->GetSelection();
    return item.IsOk() ? control_->index_of(item) : TreeNode::none;
}

wxPoint TreePane::menu_place() const {
    const wxDataViewItem item = control_->GetSelection();
    const wxRect room = item.IsOk() ? control_->GetItemRect(item) : wxRect();
    return control_->ClientToScreen(wxPoint(room.x, room.y + room.height));
}

std::size_t TreePane::node_at(const wxPoint& point) const {
    wxDataViewItem item;
    wxDataViewColumn* column = nullptr;
    control_->HitTest(point, item, column);
    return item.IsOk() ? control_->index_of(item) : TreeNode::none;
}

}  // namespace vantlow
