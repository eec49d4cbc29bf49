// The commands that the program knows, while one command line is read. Each file of commands adds its words,
// their options and their work.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

#include "app/cli/command.h"

namespace vantlow {

/// The commands below one root. A command's options live in what its `run` holds (a shared pointer). `check`
/// looks at the options that were read, as far as the option parser cannot. Used from one thread.
class CommandSet {
  public:
    using Check = std::function<Complaint()>;

    /// `words` are those that are being read; `read` reads those of other starts of the program. Both outlive
    /// it.
    CommandSet(CLI::App& root, const Words& words, ReadWords read)
        : root_(root), words_(words), read_(read) {}

    /// Adds a command that runs here. Its options are added to the returned word.
    CLI::App& add(const std::string& word, const std::string& description, CommandRun run, Check check = {});
    /// Adds such a command below another word ("category add").
    CLI::App& add_below(CLI::App& parent, const std::string& word, const std::string& description,
                        CommandRun run, Check check = {});
    /// Adds a word that needs one of the words below it, or returns it where it was added before.
    CLI::App& add_group(const std::string& word, const std::string& description);

    /// Adds a command that works on the data folder, and so runs in the process that owns the folder. Its
    /// words are handed to that process where there is one: it writes through write_stream, takes paths
    /// through absolute_path and standard input through read_standard_input, all on the calling thread.
    CLI::App& add_on_data_folder(const std::string& word, const std::string& description, CommandRun run,
                                 Check check = {});
    /// Adds such a command below another word.
    CLI::App& add_on_data_folder(CLI::App& parent, const std::string& word, const std::string& description,
                                 CommandRun run, Check check = {});

    /// Adds a command that runs somewhere else.
    CLI::App& add_at(Place place, const std::string& word, const std::string& description, CommandRun run);

    /// Adds the command that a line without a command's word means: `links` gets what stands there.
    void add_links(std::vector<std::string>& links, const std::string& description, CommandRun run,
                   Check check);

    [[nodiscard]] const Words& words() const noexcept { return words_; }
    [[nodiscard]] ReadWords reader() const noexcept { return read_; }

    struct Entry {
        CLI::App* word;
        CommandRun run;
        Check check;
        Place place = Place::here;
    };
    /// Returns, after parsing, the command that was asked for: that of add_links() where no word was named.
    [[nodiscard]] const Entry& chosen() const;

  private:
    CLI::App& root_;
    const Words& words_;
    ReadWords read_;
    std::vector<Entry> entries_;
    Entry links_{&root_, {}, {}, Place::instance};
};

/// Reads a command line. `add_commands` adds the commands that the program knows; `read` reads a whole
/// command line in the same way, for commands that run those of other starts of the program.
Command read_command_line(const Words& words, const std::function<void(CommandSet&)>& add_commands,
                          ReadWords read);

}  // namespace vantlow
