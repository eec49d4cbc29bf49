// A command line that was read: what is to run, where, and with which options that every command knows.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/process/ending.h"

namespace vantlow {

class CFerrywellApp;

/// The words of a command line, UTF-8, without the program's name.
using Words = std::vector<std::string>;

/// A complaint about the words of a command line, or nothing.
using Complaint = std::optional<std::string>;

/// The options that every command knows.
struct GlobalOptions {
    std::u16string data_folder;
    std::u16string settings_file;
    std::vector<std::string> set;  ///< "Section/Key=Value"
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool no_window = false;      ///< the resident program opens none
    bool minimized = false;      ///< its window begins minimised, or in the tray
    bool in_background = false;  ///< another process started this one, and reports that it runs
    bool at_terminal = false;    ///< standard output is one, where the words were said
};

/// The work of a command, which runs after the application has started and --set was applied.
using CommandRun = std::function<Exit(CFerrywellApp& app, const GlobalOptions& global)>;

/// The process in which a command runs.
enum class Place {
    here,
    data_folder,  ///< the process that owns the data folder; here where there is none
    instance,     ///< the running instance; where there is none this process becomes it
    quit,         ///< the running instance, which ends
};

/// The meaning of a command line: either something to run, or a text to print.
struct Command {
    CommandRun run;  ///< empty: `text` is all
    GlobalOptions global;
    Place place = Place::here;
    bool shows_window = false;  ///< a start without a command's word: the running instance shows its window
    std::string text;           ///< help to print to stdout, or a complaint for stderr
    Exit status = Exit::done;   ///< the status that `text` ends with
};

/// A function that reads the words of a whole command line.
using ReadWords = Command (*)(const Words& words);

}  // namespace vantlow
