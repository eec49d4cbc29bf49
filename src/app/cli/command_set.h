// The words that the program knows: each command's own file adds its word, its options and what it does.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "app/cli/global_options.h"
#include "app/process/application.h"
#include "app/process/exit_status.h"

namespace vantlow {

/// What a command does, after the application has started and --set was applied.
using CommandRun = std::function<Exit(CFerrywellApp& app, const GlobalOptions& global)>;

/// Where a command runs.
enum class Place {
    here,
    data_folder,  ///< in the process that owns the data folder; here where there is none
    desktop,      ///< in the running instance; where there is none this process becomes it
    quit,         ///< in the running instance, which ends
};

/// The commands below one root. A command's options live in what its `run` holds (a shared pointer).
class CommandSet {
  public:
    explicit CommandSet(CLI::App& root) : root_(root) {}

    /// Adds a word. Its options are added to what is returned. `check` looks at the options that were read,
    /// as far as the option parser cannot.
    CLI::App& add(const std::string& word, const std::string& description, CommandRun run,
                  std::function<Complaint()> check = {}) {
        return add_below(root_, word, description, std::move(run), std::move(check));
    }
    /// The same below another word ("category add").
    CLI::App& add_below(CLI::App& parent, const std::string& word, const std::string& description,
                        CommandRun run, std::function<Complaint()> check = {});
    /// A word that needs one of the words below it.
    CLI::App& add_group(const std::string& word, const std::string& description);

    /// The same for a command that works on the data folder: it runs in the process that owns the folder. Its
    /// words are handed to that process where there is one; so it writes through write_stream, takes paths
    /// through absolute_path and standard input through read_standard_input, all on the calling thread.
    CLI::App& add_on_data_folder(const std::string& word, const std::string& description, CommandRun run,
                                 std::function<Complaint()> check = {}) {
        return add_on_data_folder(root_, word, description, std::move(run), std::move(check));
    }
    CLI::App& add_on_data_folder(CLI::App& parent, const std::string& word, const std::string& description,
                                 CommandRun run, std::function<Complaint()> check = {}) {
        CLI::App& added = add_below(parent, word, description, std::move(run), std::move(check));
        entries_.back().place = Place::data_folder;
        return added;
    }

    /// The same for a command that runs somewhere else.
    CLI::App& add_at(Place place, const std::string& word, const std::string& description, CommandRun run) {
        CLI::App& added = add_below(root_, word, description, std::move(run));
        entries_.back().place = place;
        return added;
    }

    struct Entry {
        CLI::App* word;
        CommandRun run;
        std::function<Complaint()> check;
        Place place = Place::here;
    };
    /// After parsing: the command that was asked for; null when none was.
    [[nodiscard]] const Entry* chosen() const;

  private:
    CLI::App& root_;
    std::vector<Entry> entries_;
};

}  // namespace vantlow
