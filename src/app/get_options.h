// What the words of `vantlow get` ask for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vantlow {

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
    std::string key_file;  ///< a private key for SSH
    bool accept_host_key = false;
    std::string ca_file;
    bool insecure = false;
    std::string hash;       ///< "ALGO:HEX"
    std::string overwrite;  ///< "rename", "overwrite" or "cancel"
    bool no_resume = false;
    std::string select;  ///< "1,3-5": which files of a metafile; empty: all
};

}  // namespace vantlow
