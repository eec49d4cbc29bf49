#include "app/window/view_pane.h"

#include <wx/sizer.h>

#include "app/window/model/translate.h"
#include "app/window/pictures.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

enum NodePicture { folder_node, state_node, kind_node, day_node, first_sign };

int picture_of(const ViewNode& node, const std::vector<ViewNode>& nodes) {
    const ViewNode* one = &node;
    for (std::size_t i = 0; !one->view && i < nodes.size(); ++i) {
        if (nodes[i].parent < nodes.size() && &nodes[nodes[i].parent] == &node) one = &nodes[i];
    }
    if (!one->view) return folder_node;
    switch (one->view->what) {
        case View::What::state:
            return one == &node ? first_sign + static_cast<int>(sign_of(one->view->state)) : state_node;
        case View::What::kind:
            return kind_node;
        case View::What::day:
            return day_node;
        default:
            return folder_node;
    }
}

}  // namespace

ViewPane::ViewPane(wxWindow* parent, ViewTree& tree, Events events)
    : wxPanel(parent), tree_(tree), events_(std::move(events)) {
    TreePane::Events of_tree;
    of_tree.selected = [this](std::size_t node) {
        const auto& nodes = tree_.nodes();
        if (node >= nodes.size() || !nodes[node].view) return;
        view_ = *nodes[node].view;
        tree_.looked_at(view_);
        if (events_.selected) events_.selected();
    };
    of_tree.menu = [this](const wxPoint& at) {
        if (events_.menu) events_.menu(at);
    };
    std::vector<wxBitmapBundle> pictures{picture(Picture::folder), picture(Picture::clock),
                                         picture(Picture::kind), picture(Picture::day)};
    for (const wxBitmapBundle& sign : row_signs()) pictures.push_back(sign);
    pane_ = new TreePane(this, ui(tr("Categories")), pictures, std::move(of_tree));
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(pane_, wxSizerFlags(1).Expand());
    SetSizer(all);
    tree_.on_news([this](const ViewTree::News& news) {
        if (news.shape) return rebuild();
        for (const std::size_t node : news.nodes) pane_->set_label(node, label_of(node));
    });
    rebuild();
}

ViewPane::~ViewPane() {
    tree_.on_news({});
}

wxString ViewPane::label_of(std::size_t node) const {
    const ViewNode& one = tree_.nodes()[node];
    if (!one.view) return ui(one.label);
    wxString label = ui(one.label) + wxString::Format(" (%zu)", one.count);
    if (one.unread > 0) label += " " + ui(fill(tr("%1 new"), {std::to_string(one.unread)}));
    return label;
}

void ViewPane::rebuild() {
    std::vector<TreeNode> nodes;
    const auto& all = tree_.nodes();
    for (std::size_t i = 0; i < all.size(); ++i)
        nodes.push_back({label_of(i), all[i].parent, picture_of(all[i], all)});
    pane_->set_nodes(nodes);
    select(view_);
}

void ViewPane::select(const View& view) {
    const auto& nodes = tree_.nodes();
    std::size_t node = tree_.find(view);
    for (std::size_t i = 0; node == ViewNode::none && i < nodes.size(); ++i) {
        if (nodes[i].view) node = i;  // the view is gone: the first one there is
    }
    if (node == ViewNode::none) return;
    const bool same = *nodes[node].view == view_;
    view_ = *nodes[node].view;
    pane_->select(node);
    if (!same && events_.selected) events_.selected();
}

const View* ViewPane::category_at(const wxPoint& on_screen) const {
    const std::size_t node = pane_->node_at(pane_->control().ScreenToClient(on_screen));
    const auto& nodes = tree_.nodes();
    const bool is_category =
        node < nodes.size() && nodes[node].view && nodes[node].view->what == View::What::category;
    return is_category ? &*nodes[node].view : nullptr;
}

}  // namespace vantlow
