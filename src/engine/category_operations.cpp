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
    const std::u16string rule = to_utf16(guid_text(category));  // the identity may be the category's own
    if (!store_->remove_category(*node)) return {Fault::first_category};
    // One that stays is a rule of nobody.
    static_cast<void>(options_.settings.erase(rules_section, rule));
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

// ---- The rules of categories.

CategoryRule Engine::rule_of(const Guid& category) const {
    const std::u16string text = options_.settings.text(rules_section, to_utf16(guid_text(category)));
    // One that somebody else wrote wrongly is none.
    return parse_category_rule(to_utf8(text), category).value_or(CategoryRule{category, {}, {}});
}

std::vector<CategoryRule> Engine::category_rules() const {
    std::vector<CategoryRule> rules;
    if (in_memory()) return rules;
    for (const CClassNode* category : categories()) {
        if (category->parent == nullptr) continue;
        CategoryRule rule = rule_of(category->identity);
        if (!rule.endings.empty() || !rule.hosts.empty()) rules.push_back(std::move(rule));
    }
    return rules;
}

std::optional<Guid> Engine::category_by_rules(std::u16string_view address, std::u16string_view name) const {
    return category_by(category_rules(), address, name);
}

Done Engine::set_category_rule(const Guid& category, std::string_view text) {
    const CClassNode* const node = store_->tree().find(category);
    if (node == nullptr) return {Fault::no_category};
    const auto rule = parse_category_rule(text);
    if (!rule) return {Fault::bad_value, {}, to_utf16(text)};
    if (node->parent == nullptr) return text.empty() ? Done() : Done{Fault::first_category};
    const std::u16string key = to_utf16(guid_text(category));
    if (rule->endings.empty() && rule->hosts.empty()) return unset_setting(rules_section, key);
    return set_setting(rules_section, key, to_utf16(text_of(*rule)));
}

}  // namespace vantlow
