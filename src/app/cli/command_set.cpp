#include "app/cli/command_set.h"

#include <utility>

namespace vantlow {

CLI::App& CommandSet::add(const std::string& word, const std::string& description, CommandRun run,
                          Check check) {
    return add_below(root_, word, description, std::move(run), std::move(check));
}

CLI::App& CommandSet::add_below(CLI::App& parent, const std::string& word, const std::string& description,
                                CommandRun run, Check check) {
    CLI::App* app = parent.add_subcommand(word, description);
    app->fallthrough();  // global options stand before or after the word
    entries_.push_back({app, std::move(run), std::move(check)});
    return *app;
}

CLI::App& CommandSet::add_group(const std::string& word, const std::string& description) {
    const auto known =
        root_.get_subcommands([&word](const CLI::App* app) { return app->get_name() == word; });
    if (!known.empty()) return *known.front();
    CLI::App* app = root_.add_subcommand(word, description);
    app->fallthrough();
    app->require_subcommand(1);
    return *app;
}

CLI::App& CommandSet::add_on_data_folder(const std::string& word, const std::string& description,
                                         CommandRun run, Check check) {
    return add_on_data_folder(root_, word, description, std::move(run), std::move(check));
}

CLI::App& CommandSet::add_on_data_folder(CLI::App& parent, const std::string& word,
                                         const std::string& description, CommandRun run, Check check) {
    CLI::App& added = add_below(parent, word, description, std::move(run), std::move(check));
    entries_.back().place = Place::data_folder;
    return added;
}

CLI::App& CommandSet::add_at(Place place, const std::string& word, const std::string& description,
                             CommandRun run) {
    CLI::App& added = add_below(root_, word, description, std::move(run));
    entries_.back().place = place;
    return added;
}

void CommandSet::add_links(std::vector<std::string>& links, const std::string& description, CommandRun run,
                           Check check) {
    root_.add_option("LINK", links, description);
    links_ = {&root_, std::move(run), std::move(check), Place::instance};
}

const CommandSet::Entry& CommandSet::chosen() const {
    for (const Entry& entry : entries_) {
        if (entry.word->parsed()) return entry;
    }
    return links_;
}

}  // namespace vantlow
