// The options that describe a job, for every command that makes one, and the draft that they stand for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/cli/command.h"
#include "engine/draft.h"

namespace CLI {
class App;
}

namespace vantlow {

inline constexpr int standard_connections = 5;

/// The options as they were typed. Paths are meant from the current folder of the thread that runs the
/// command.
struct JobOptions {
    std::vector<std::string> links;
    std::string folder;
    std::string output;
    std::optional<int> connections;  ///< none: standard_connections
    std::string input_file;          ///< "-": standard input
    std::string user;
    std::string password;
    std::string referer;
    std::string agent;
    std::string cookie;
    std::string proxy;
    std::string limit;
    bool limits_each = false;  ///< the limit is that of each job, not of all together
    std::optional<std::int64_t> retries;
    std::optional<std::int64_t> retry_delay;
    std::string key_file;  ///< a private key for SSH
    bool accept_host_key = false;
    std::string ca_file;
    bool insecure = false;
    std::string hash;       ///< "ALGO:HEX"
    std::string overwrite;  ///< "rename", "overwrite" or "cancel"
    bool skip_existing = false;
    bool no_resume = false;
    std::string select;  ///< "1,3-5": the chosen files of a metafile; empty: all
    bool sequential = false;
    bool ends_first = false;
    std::string upload_limit;
};

/// The options that say how long a torrent is shared after its end.
struct SeedOptions {
    bool seed = false;            ///< without a bound
    std::optional<double> ratio;  ///< of what is sent to its size
    std::string time;             ///< a span; empty: not given
};

/// Adds these options. `options` outlives the word.
void add_seed_options(CLI::App& word, SeedOptions& options);

/// Complains of a time that is none.
Complaint check_seed_options(const SeedOptions& options);

/// Adds the options to a word, but for --limit, which means another thing to each command. `options` outlives
/// it.
void add_job_options(CLI::App& word, JobOptions& options);

/// Complains of options that name one file while several links are meant. Looks at no file.
Complaint check_job_options(const JobOptions& options);

/// Complains of a value that the option parser cannot judge: the cookies' file, the hash, the proxy.
Complaint check_draft(const JobOptions& options);

/// Complains of a text for --proxy that names none; an empty text is none to complain of.
Complaint check_proxy(const std::string& proxy);

/// Complains of files that the options name and that are not there, and of a limit that is none.
Complaint check_named_files(const JobOptions& options);

/// Returns the draft that the checked options ask for, without its links. `folder` is the one without --dir.
JobDraft draft_of(const JobOptions& options, const std::u16string& folder);

/// Returns --dir, or the other folder, and the folder part of --output together.
std::u16string target_folder(const JobOptions& options, const std::u16string& otherwise = u".");

/// Reads the links of the words and of the file that --input names. Complains where the file cannot be read.
Complaint read_links(const JobOptions& options, std::vector<std::string>& links);

}  // namespace vantlow
