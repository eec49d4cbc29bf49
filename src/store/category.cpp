#include "store/category.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

// The path "/Downloading/Music/Live". A path from below the root is a tail of it that begins at a "/".
std::u16string path_of(const CClassNode& node) {
    std::u16string path;
    for (const CClassNode* at = &node; at != nullptr; at = at->parent) path.insert(0, u"/" + at->name);
    return path;
}

bool is_below(const CClassNode& node, const CClassNode& above) noexcept {
    for (const CClassNode* at = &node; at != nullptr; at = at->parent) {
        if (at == &above) return true;
    }
    return false;
}

auto place_of(const CClassNode& child) {
    auto& children = child.parent->children;
    return std::find_if(children.begin(), children.end(),
                        [&](const auto& entry) { return entry.get() == &child; });
}

}  // namespace

CClassNode::~CClassNode() {
    // The last leaf of the last branch is always next. It is found from above, with links back upwards, so
    // that this takes neither stack nor memory, which may be short.
    for (CClassNode* node = this;;) {
        if (!node->children.empty()) {
            CClassNode* below = node->children.back().get();
            below->parent = node;
            node = below;
        } else if (node != this) {
            node = node->parent;
            node->children.pop_back();
        } else {
            return;
        }
    }
}

Guid descend_marker() noexcept {
    return Guid::from_numbers(1, 0);
}
Guid ascend_marker() noexcept {
    return Guid::from_numbers(2, 0);
}

bool is_reserved_category(const Guid& guid) noexcept {
    return guid == descend_marker() || guid == ascend_marker();
}

CClassNode& CategoryTree::insert(std::unique_ptr<CClassNode> node, CClassNode* parent, Place place) {
    CClassNode& inserted = *node;
    if (is_reserved_category(inserted.identity)) inserted.identity = {};
    if (!root_) {
        inserted.parent = nullptr;
        root_ = std::move(node);
        return inserted;
    }
    if (parent == nullptr) parent = root_.get();
    inserted.parent = parent;
    auto at = parent->children.end();
    if (place == Place::sorted) {
        at = std::upper_bound(
            parent->children.begin(), at, inserted.name,
            [](const auto& name, const auto& child) { return NameLess()(name, child->name); });
    }
    parent->children.insert(at, std::move(node));
    return inserted;
}

std::vector<CClassNode*> CategoryTree::all() {
    std::vector<CClassNode*> found;
    std::vector<CClassNode*> ahead;
    if (root_) ahead.push_back(root_.get());
    while (!ahead.empty()) {
        CClassNode* node = ahead.back();
        ahead.pop_back();
        found.push_back(node);
        // Backwards, so that the first child is the next one.
        for (auto child = node->children.rbegin(); child != node->children.rend(); ++child) {
            ahead.push_back(child->get());
        }
    }
    return found;
}

CClassNode* CategoryTree::find(const Guid& guid) {
    const std::vector<CClassNode*> nodes = all();
    const auto at = std::find_if(nodes.begin(), nodes.end(),
                                 [&](const CClassNode* node) { return node->identity == guid; });
    return at == nodes.end() ? nullptr : *at;
}

std::vector<CClassNode*> CategoryTree::find_named(std::u16string_view name) {
    std::vector<CClassNode*> exact;
    std::vector<CClassNode*> alike;
    std::vector<CClassNode*> by_path;
    const std::u16string tail = u"/" + std::u16string(name);
    for (CClassNode* node : all()) {
        if (node->name == name) exact.push_back(node);
        if (iequals(node->name, name)) alike.push_back(node);
        if (name.find(u'/') == std::u16string_view::npos) continue;
        const std::u16string path = path_of(*node);
        if (path.size() >= tail.size() &&
            iequals(std::u16string_view(path).substr(path.size() - tail.size()), tail)) {
            by_path.push_back(node);
        }
    }
    if (!exact.empty()) return exact;
    return alike.empty() ? by_path : alike;
}

bool CategoryTree::move(CClassNode& node, CClassNode& parent, Place place) {
    if (node.parent == nullptr || is_below(parent, node)) return false;
    const auto at = place_of(node);
    std::unique_ptr<CClassNode> moved = std::move(*at);
    node.parent->children.erase(at);
    insert(std::move(moved), &parent, place);
    return true;
}

bool CategoryTree::place(CClassNode& node, CClassNode& parent, std::size_t place) {
    if (!move(node, parent)) return false;
    auto& children = parent.children;
    const auto to = children.begin() + static_cast<std::ptrdiff_t>(std::min(place, children.size() - 1));
    std::rotate(to, std::prev(children.end()), children.end());
    return true;
}

bool CategoryTree::remove(CClassNode& node) {
    CClassNode* parent = node.parent;
    if (parent == nullptr) return false;
    for (const auto& job : node.jobs) job->category = parent->identity;
    parent->jobs.append(std::move(node.jobs));
    auto at = place_of(node);
    const std::unique_ptr<CClassNode> gone = std::move(*at);
    at = parent->children.erase(at);
    for (auto& child : gone->children) {
        child->parent = parent;
        at = std::next(parent->children.insert(at, std::move(child)));
    }
    gone->children.clear();
    return true;
}

CategoryTree CategoryTree::with_defaults(const std::u16string& folder, const Guid& completed) {
    CategoryTree tree;
    auto downloading = std::make_unique<CClassNode>();
    downloading->name = u"Downloading";
    downloading->folder = folder;
    auto done = std::make_unique<CClassNode>();
    done->identity = completed;
    done->name = u"Completed";
    done->folder = folder;
    CClassNode& root = tree.insert(std::move(downloading), nullptr);
    tree.insert(std::move(done), &root);
    return tree;
}

}  // namespace vantlow
