// The options that every command knows.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "store/settings.h"

namespace vantlow {

struct GlobalOptions {
    std::u16string data_folder;
    std::u16string settings_file;
    std::vector<std::string> set;  ///< "Section/Key=Value"
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool no_window = false;      ///< nothing opens one so far
    bool in_background = false;  ///< this process was started by another, which tells that it runs
};

/// A complaint about the words of a command line, or nothing.
using Complaint = std::optional<std::string>;

/// Puts the values of --set over the store's, for this run only.
Complaint apply_overrides(const GlobalOptions& global, Settings& settings);

}  // namespace vantlow
