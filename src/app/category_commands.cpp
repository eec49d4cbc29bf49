// `vantlow category ...` and `vantlow move`.
#include <nlohmann/json.hpp>

#include <memory>

#include "app/display_text.h"
#include "app/json_text.h"
#include "app/store_command.h"
#include "app/store_commands.h"
#include "base/text.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

struct CategoryOptions {
    std::string name;
    std::string other;  ///< a new name, or the category above
    std::string folder;
    std::vector<std::string> ids;
};
using Shared = std::shared_ptr<CategoryOptions>;

int depth_of(const CClassNode& node) noexcept {
    int depth = 0;
    for (const CClassNode* at = node.parent; at != nullptr; at = at->parent) ++depth;
    return depth;
}

Exit run_list(StoreCommand& command) {
    std::string text;
    ordered_json all = ordered_json::array();
    for (const CClassNode* node : command.store.tree().all()) {
        const std::string name = to_utf8(node->name);
        all.push_back({{"id", guid_text(node->identity)},
                       {"name", name},
                       {"parent", node->parent == nullptr ? ordered_json(nullptr)
                                                          : ordered_json(to_utf8(node->parent->name))},
                       {"folder", to_utf8(node->folder)},
                       {"depth", depth_of(*node)},
                       {"jobs", node->jobs.size()}});
        text += std::string(static_cast<std::size_t>(depth_of(*node)) * 2, ' ') + printable(name) + "  (" +
                std::to_string(node->jobs.size()) + ")  " + printable(to_utf8(node->folder)) + "\n";
    }
    write_stream(Stream::output, command.global.json ? json_line(all) + "\n" : text);
    return Exit::done;
}

// A name that is not taken beside it, so that it can be said; empty when the complaint was made.
bool is_free(const CClassNode& parent, const std::string& name, const CClassNode* own = nullptr) {
    if (name.empty() || name.find_first_of("/\n\r") != std::string::npos) {
        complain("A category cannot be called \"" + name + "\".");
        return false;
    }
    for (const auto& child : parent.children) {
        if (child.get() == own || !iequals(child->name, to_utf16(name))) continue;
        complain("There is a category \"" + to_utf8(child->name) + "\" already.");
        return false;
    }
    return true;
}

Exit run_add(StoreCommand& command, const CategoryOptions& options) {
    CClassNode* parent = command.store.tree().root();
    if (!options.other.empty()) parent = find_category(command, options.other);
    if (parent == nullptr || !is_free(*parent, options.name)) return Exit::failed;
    std::u16string folder;
    if (!options.folder.empty()) folder = absolute_path(to_utf16(options.folder));
    command.store.add_category(to_utf16(options.name), folder, *parent);
    return Exit::done;
}

Exit run_remove(StoreCommand& command, const CategoryOptions& options) {
    CClassNode* node = find_category(command, options.name);
    if (node == nullptr) return Exit::failed;
    if (command.store.remove_category(*node)) return Exit::done;
    complain("The first category stays.");
    return Exit::failed;
}

Exit run_rename(StoreCommand& command, const CategoryOptions& options) {
    CClassNode* node = find_category(command, options.name);
    if (node == nullptr) return Exit::failed;
    if (!is_free(node->parent != nullptr ? *node->parent : *node, options.other, node)) return Exit::failed;
    node->name = to_utf16(options.other);
    command.store.changed(*node);
    return Exit::done;
}

Exit run_move(StoreCommand& command, const CategoryOptions& options) {
    CClassNode* node = find_category(command, options.name);
    CClassNode* parent = find_category(command, options.other);
    if (node == nullptr || parent == nullptr) return Exit::failed;
    if (parent == node->parent) return Exit::done;
    if (!is_free(*parent, to_utf8(node->name), node)) return Exit::failed;
    if (!command.store.move_category(*node, *parent)) {
        complain("A category cannot be put below itself, and the first one stays where it is.");
        return Exit::failed;
    }
    return Exit::done;
}

Exit run_move_jobs(StoreCommand& command, const CategoryOptions& options) {
    CClassNode* category = find_category(command, options.name);
    if (category == nullptr) return Exit::failed;
    bool complete = true;
    for (CJobNode* job : find_jobs(command, options.ids, complete)) command.store.move(*job, *category);
    return complete ? Exit::done : Exit::failed;
}

}  // namespace

void add_category_commands(CommandSet& commands) {
    CLI::App& group = commands.add_group("category", "The tree of categories");
    const auto add = [&](const char* word, const char* description, auto run) {
        const auto options = std::make_shared<CategoryOptions>();
        CLI::App& app = commands.add_on_data_folder(
            group, word, description,
            on_store([options, run](StoreCommand& command) { return run(command, *options); }));
        return std::pair<CLI::App&, Shared>(app, options);
    };
    add("list", "The categories",
        [](StoreCommand& command, const CategoryOptions&) { return run_list(command); });
    {
        const auto [app, options] = add("add", "A new category", run_add);
        app.add_option("NAME", options->name)->required();
        app.add_option("--parent", options->other, "The category that it stands below");
        app.add_option("--folder", options->folder, "Where its jobs are saved");
    }
    {
        const auto [app, options] =
            add("remove", "Remove a category; its jobs go to the one above it", run_remove);
        app.add_option("NAME", options->name)->required();
    }
    {
        const auto [app, options] = add("rename", "Give a category another name", run_rename);
        app.add_option("NAME", options->name)->required();
        app.add_option("NEW", options->other, "Its new name")->required();
    }
    {
        const auto [app, options] = add("move", "Put a category below another one", run_move);
        app.add_option("NAME", options->name)->required();
        app.add_option("PARENT", options->other, "The category that it will stand below")->required();
    }
    const auto options = std::make_shared<CategoryOptions>();
    CLI::App& move = commands.add_on_data_folder(
        "move", "File jobs in another category",
        on_store([options](StoreCommand& command) { return run_move_jobs(command, *options); }));
    move.add_option("CATEGORY", options->name)->required();
    move.add_option("ID", options->ids, "The jobs")->required();
}

}  // namespace vantlow
