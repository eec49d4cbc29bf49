// `vantlow category ...` and `vantlow move`.
#include <nlohmann/json.hpp>

#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/store_command.h"
#include "app/terminal/display_text.h"
#include "base/text.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

struct CategoryOptions {
    std::string name;
    std::string other;  ///< a new name, or the category above
    std::string folder;
    std::string files_to;  ///< a folder
    std::vector<std::string> ids;
    std::vector<std::string> rule;
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
    for (const CClassNode* node : command.engine.categories()) {
        const std::string name = to_utf8(node->name);
        all.push_back({{"id", guid_text(node->identity)},
                       {"name", name},
                       {"parent", node->parent == nullptr ? ordered_json(nullptr)
                                                          : ordered_json(to_utf8(node->parent->name))},
                       {"folder", to_utf8(node->folder)},
                       {"depth", depth_of(*node)},
                       {"rule", text_of(command.engine.rule_of(node->identity))},
                       {"jobs", node->jobs.size()}});
        text += std::string(static_cast<std::size_t>(depth_of(*node)) * 2, ' ') + printable(name) + "  (" +
                std::to_string(node->jobs.size()) + ")  " + printable(to_utf8(node->folder)) + "\n";
    }
    print_answer(command.global, all, text);
    return Exit::done;
}

Exit run_add(StoreCommand& command, const CategoryOptions& options) {
    const CClassNode* parent = command.engine.first_category();
    if (!options.other.empty()) parent = find_category(command, options.other);
    if (parent == nullptr) return Exit::failed;
    std::u16string folder;
    if (!options.folder.empty()) folder = absolute_path(to_utf16(options.folder));
    return exit_of(command.engine.add_category(to_utf16(options.name), folder, parent->identity).done,
                   options.name);
}

Exit run_remove(StoreCommand& command, const CategoryOptions& options) {
    const CClassNode* const node = find_category(command, options.name);
    if (node == nullptr) return Exit::failed;
    return exit_of(command.engine.remove_category(node->identity), options.name);
}

Exit run_rename(StoreCommand& command, const CategoryOptions& options) {
    const CClassNode* const node = find_category(command, options.name);
    if (node == nullptr) return Exit::failed;
    return exit_of(command.engine.rename_category(node->identity, to_utf16(options.other)), options.other);
}

Exit run_folder(StoreCommand& command, const CategoryOptions& options) {
    const CClassNode* const node = find_category(command, options.name);
    if (node == nullptr) return Exit::failed;
    const bool is_own = !options.folder.empty();
    const std::u16string folder = is_own ? absolute_path(to_utf16(options.folder)) : std::u16string();
    return exit_of(command.engine.set_category_folder(node->identity, folder), options.folder);
}

Exit run_rule(StoreCommand& command, const CategoryOptions& options) {
    const CClassNode* const node = find_category(command, options.name);
    if (node == nullptr) return Exit::failed;
    if (options.rule.empty()) {
        const std::string rule = text_of(command.engine.rule_of(node->identity));
        print_answer(command.global, rule, rule.empty() ? rule : rule + "\n");
        return Exit::done;
    }
    std::string text;
    for (const std::string& word : options.rule) text += word + " ";
    if (options.rule.size() == 1 && options.rule[0] == "none") text.clear();
    return exit_of(command.engine.set_category_rule(node->identity, text), "The rule \"" + text + "\"");
}

Exit run_move(StoreCommand& command, const CategoryOptions& options) {
    const CClassNode* const node = find_category(command, options.name);
    const CClassNode* const parent = find_category(command, options.other);
    if (node == nullptr || parent == nullptr) return Exit::failed;
    return exit_of(command.engine.move_category(node->identity, parent->identity), options.name);
}

// Where jobs run the files go behind the command, which may take long.
Exit run_move_files(StoreCommand& command, const CategoryOptions& options) {
    const std::u16string folder = absolute_path(to_utf16(options.files_to));
    std::vector<std::string> ids = options.ids;
    if (!options.name.empty()) ids.insert(ids.begin(), options.name);
    bool complete = true;
    for (const Guid& job : find_jobs(command, ids, complete)) {
        if (exit_of(command.engine.move_files(job, folder), guid_text(job)) != Exit::done) complete = false;
        if (command.engine.is_moving(job))
            command.promise += "The files of " + guid_text(job) + " are on their way to " +
                               printable(to_utf8(folder)) + "; `vantlow show` tells how far they are.\n";
    }
    return complete ? Exit::done : Exit::failed;
}

Exit run_move_jobs(StoreCommand& command, const CategoryOptions& options) {
    if (!options.files_to.empty()) return run_move_files(command, options);
    const CClassNode* const category = find_category(command, options.name);
    if (category == nullptr) return Exit::failed;
    bool complete = true;
    for (const Guid& job : find_jobs(command, options.ids, complete))
        static_cast<void>(command.engine.move(job, category->identity));  // both were found a moment ago
    return complete ? Exit::done : Exit::failed;
}

}  // namespace

void add_category_commands(CommandSet& commands) {
    CLI::App& group = commands.add_group("category", "Manage the tree of categories");
    const auto add = [&](const char* word, const char* description, auto run) {
        const auto options = std::make_shared<CategoryOptions>();
        CLI::App& app = commands.add_on_data_folder(
            group, word, description,
            on_store([options, run](StoreCommand& command) { return run(command, *options); }));
        return std::pair<CLI::App&, Shared>(app, options);
    };
    add("list", "List the categories",
        [](StoreCommand& command, const CategoryOptions&) { return run_list(command); });
    {
        const auto [app, options] = add("add", "Add a category", run_add);
        app.add_option("NAME", options->name, "Its name")->required();
        app.add_option("--parent", options->other, "The category to put it below");
        app.add_option("--folder", options->folder, "The folder for the files of its jobs");
    }
    {
        const auto [app, options] =
            add("remove", "Remove a category; its jobs go to the one above it", run_remove);
        app.add_option("NAME", options->name, "Its name or path")->required();
    }
    {
        const auto [app, options] = add("rename", "Rename a category", run_rename);
        app.add_option("NAME", options->name, "Its name or path")->required();
        app.add_option("NEW", options->other, "Its new name")->required();
    }
    {
        const auto [app, options] =
            add("folder", "Choose the folder of jobs that are added from now on", run_folder);
        app.add_option("NAME", options->name, "The category's name or path")->required();
        app.add_option("FOLDER", options->folder, "The folder; none: that of the category above");
    }
    {
        const auto [app, options] =
            add("rule", "Choose which new jobs without a category of their own are filed there", run_rule);
        app.add_option("NAME", options->name, "The category's name or path")->required();
        app.add_option("RULE", options->rule,
                       "Endings of files (.iso .mp4) and hosts of servers (example.org); none: no rule. "
                       "Nothing: prints it");
    }
    {
        const auto [app, options] = add("move", "Move a category below another one", run_move);
        app.add_option("NAME", options->name, "Its name or path")->required();
        app.add_option("PARENT", options->other, "The category to put it below")->required();
    }
    const auto options = std::make_shared<CategoryOptions>();
    CLI::App& move = commands.add_on_data_folder(
        "move", "Move jobs to another category, or with --files their files to another folder",
        on_store([options](StoreCommand& command) { return run_move_jobs(command, *options); }),
        [options]() -> Complaint {
            if (options->files_to.empty() && options->ids.empty())
                return "name a category and at least one job.";
            return std::nullopt;
        });
    move.add_option("CATEGORY", options->name, "The name or the path of the category; not with --files")
        ->required();
    move.add_option("ID", options->ids, "The jobs' ids, or the beginnings of them");
    move.add_option(
            "--files", options->files_to,
            "Move the jobs' files into this folder, also while they are downloaded or shared; nothing "
            "there is replaced")
        ->type_name("FOLDER");
}

}  // namespace vantlow
