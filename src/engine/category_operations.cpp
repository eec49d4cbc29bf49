// The engine's operations on categories.
#include <algorithm>

#include "base/text.h"
#include "engine/engine.h"

namespace vantlow {

using Fault = Done::Fault;

CClassNode* Engine::category_or_first(const Guid& category) {
    CClassNode* const node = store_->tree().find(category);
    return node != nullptr ? node : store_->tree().root();
}

// Checks that nothing beside the category has this name, so that the name identifies it.
Done Engine::look_at_name(const CClassNode& parent, std::u16string_view name, const CClassNode* own) {
    if (name.empty() || name.find_first_of(u"/\n\r") != std::u16string_view::npos)
        return {Fault::name_refused, {}, std::u16string(name)};
    for (const auto& child : parent.children) {
        if (child.get() != own && iequals(child->name, name)) return {Fault::name_taken, {}, child->name};
    }
    return {};
}

Engine::NewCategory Engine::add_category(const std::u16string& name, const std::u16string& folder,
                                         const Guid& parent) {
    CClassNode* const above = store_->tree().find(parent);
    if (above == nullptr) return {{Fault::no_category}, {}};
    if (Done done = look_at_name(*above, name, nullptr); !done.ok()) return {std::move(done), {}};
    const CClassNode& made = store_->add_category(name, folder, *above);
    return {{}, made.identity};
}

Done Engine::remove_category(const Guid& category) {
    CClassNode* const node = store_->tree().find(category);
    if (node == nullptr) return {Fault::no_category};
    if (!store_->remove_category(*node)) return {Fault::first_category};
    return {};
}

Done Engine::rename_category(const Guid& category, const std::u16string& name) {
    CClassNode* const node = store_->tree().find(category);
    if (node == nullptr) return {Fault::no_category};
    if (Done done = look_at_name(node->parent != nullptr ? *node->parent : *node, name, node); !done.ok())
        return done;
    node->name = name;
    store_->changed(*node);
    return {};
}

Done Engine::set_category_folder(const Guid& category, const std::u16string& folder) {
    CClassNode* const node = store_->tree().find(category);
    if (node == nullptr) return {Fault::no_category};
    const bool follows = folder.empty() && node->parent != nullptr;
    if (!follows && (folder.empty() || absolute_path(folder) != folder))
        return {Fault::bad_value, {}, folder};
    node->folder = follows ? node->parent->folder : folder;
    store_->changed(*node);
    return {};
}

Done Engine::move_category(const Guid& category, const Guid& parent) {
    CClassNode* const node = store_->tree().find(category);
    CClassNode* const above = store_->tree().find(parent);
    if (node == nullptr || above == nullptr) return {Fault::no_category};
    if (above == node->parent) return {};
    if (Done done = look_at_name(*above, node->name, node); !done.ok()) return done;
    if (node->parent == nullptr) return {Fault::first_category};
    if (!store_->move_category(*node, *above)) return {Fault::below_itself};
    return {};
}

}  // namespace vantlow
