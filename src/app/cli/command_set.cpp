#include "app/cli/command_set.h"

#include <utility>

namespace vantlow {

CLI::App& CommandSet::add_below(CLI::App& parent, const std::string& word, const std::string& description,
                                CommandRun run, std::function<Complaint()> check) {
    CLI::App* app = parent.add_subcommand(word, description);
    app->fallthrough();  // global options stand before or after the word
    entries_.push_back({app, std::move(run), std::move(check)});
    return *app;
}

CLI::App& CommandSet::add_group(const std::string& word, const std::string& description) {
    CLI::App* app = root_.add_subcommand(word, description);
    app->fallthrough();
    app->require_subcommand(1);
    return *app;
}

const CommandSet::Entry* CommandSet::chosen() const {
    for (const Entry& entry : entries_) {
        if (entry.word->parsed()) return &entry;
    }
    return nullptr;
}

}  // namespace vantlow
