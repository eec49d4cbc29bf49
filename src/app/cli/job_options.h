// What the words of `vantlow get` ask for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/cli/global_options.h"
#include "engine/draft.h"
#include "store/settings.h"

namespace vantlow {

inline constexpr int standard_connections = 5;

/// `vantlow get`.
struct GetOptions {
    std::vector<std::string> links;
    std::string folder;
    std::string output;
    std::optional<int> connections;  ///< none: standard_connections
    std::optional<int> jobs;
    std::string input_file;  ///< "-": standard input
    std::string user;
    std::string password;
    std::string referer;
    std::string agent;
    std::string cookie;
    std::string proxy;
    std::string limit;
    bool limits_each = false;   ///< the limit is that of each job, not of all together
    std::string give_up_after;  ///< a span of time; empty: unsaid
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
    std::string select;  ///< "1,3-5": which files of a metafile; empty: all
};

/// What is wrong with the options that the option parser cannot see: the proxy, the hash, the cookies' file.
Complaint check_draft(const GetOptions& options);

/// The draft that the options ask for, without its links; they were checked. `folder` is the one without
/// --dir. Paths are meant from the thread's current folder.
JobDraft draft_of(const GetOptions& options, const std::u16string& folder);

/// --dir, or the other folder, and the folder part of --output together.
std::u16string target_folder(const GetOptions& options, const std::u16string& otherwise = u".");

/// What is wrong with the files and the limit that the options name. Paths are meant from the thread's
/// current folder.
Complaint check_named_files(const GetOptions& options);

/// Puts what the options say in place of the settings, for this run only.
Complaint override_settings(Settings& settings, const GetOptions& options);

/// The links of the words and of the file that --input names.
Complaint read_links(const GetOptions& options, std::vector<std::string>& links);

}  // namespace vantlow
