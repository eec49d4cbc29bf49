// What the words of `vantlow get` ask for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "transfer/job/main_thread.h"

namespace vantlow {

/// Options that every command knows.
struct GlobalOptions {
    std::u16string data_folder;
    std::u16string settings_file;
    std::vector<std::string> set;  ///< "Section/Key=Value"
    bool json = false;
    bool quiet = false;
    bool verbose = false;
};

/// `vantlow get`.
struct GetOptions {
    std::vector<std::string> links;
    std::string folder;
    std::string output;
    int connections = 5;
    std::optional<int> jobs;
    std::string input_file;  ///< "-": standard input
    std::string user;
    std::string password;
    std::string referer;
    std::string agent;
    std::string cookie;
    std::string proxy;
    std::string limit;
    std::optional<std::int64_t> retries;
    std::optional<std::int64_t> retry_delay;
    std::string ca_file;
    bool insecure = false;
    std::string hash;       ///< "ALGO:HEX"
    std::string overwrite;  ///< "rename", "overwrite" or "cancel"
    bool no_resume = false;
};

/// Exit statuses of the program.
enum class Exit : int {
    done = 0,
    failed = 1,
    usage = 2,
    local_file = 3,
    network = 4,
    credentials = 5,
    not_trusted = 6,
    hash = 7,
    interrupted = 130,
};

/// The status that a job's result stands for.
Exit exit_of(const Result& result) noexcept;

}  // namespace vantlow
