#include "store/category.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

bool name_less(std::u16string_view a, std::u16string_view b) noexcept {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char16_t x, char16_t y) {
        return ascii_lower(x) < ascii_lower(y);
    });
}

}  // namespace

CClassNode::~CClassNode() {
    // Always the last leaf of the last branch, found from above and given back upwards: neither the stack nor
    // memory that might be lacking.
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
            [](const auto& name, const auto& child) { return name_less(name, child->name); });
    }
    parent->children.insert(at, std::move(node));
    return inserted;
}

CClassNode* CategoryTree::find(const Guid& guid) noexcept {
    std::vector<CClassNode*> ahead;
    if (root_) ahead.push_back(root_.get());
    while (!ahead.empty()) {
        CClassNode* node = ahead.back();
        ahead.pop_back();
        if (node->identity == guid) return node;
        // Backwards, so that the first child is looked at first.
        for (auto child = node->children.rbegin(); child != node->children.rend(); ++child) {
            ahead.push_back(child->get());
        }
    }
    return nullptr;
}

CJobNode& CategoryTree::file(std::unique_ptr<CJobNode> job) {
    CClassNode* category = find(job->category);
    if (category == nullptr) category = root_.get();
    job->category = category->identity;
    return *category->jobs.emplace_back(std::move(job));
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
