// What the words of `vantlow get` ask for.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/global_options.h"
#include "store/settings.h"
#include "transfer/job/main_thread.h"

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

/// What the options say of a job's run: its proxy, and the hash of its file.
Complaint read_run_options(const GetOptions& options, RunOptions& run);

/// What the options say that stays with a job; null where they say nothing of that.
std::shared_ptr<const JobRules> job_rules(const GetOptions& options);

/// What is wrong with the files and the limit that the options name. Paths are meant from the thread's
/// current folder.
Complaint check_named_files(const GetOptions& options);

/// Puts what the options say in place of the settings, for this run only.
Complaint override_settings(Settings& settings, const GetOptions& options);

/// The links of the words and of the file that --input names.
Complaint read_links(const GetOptions& options, std::vector<std::string>& links);

}  // namespace vantlow
