// The options of jobs and of the program, in the words of front ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rpc/call.h"

namespace vantlow::rpc {

/// The wishes for a job; none: nothing was asked. Texts are UTF-8, without control characters.
struct JobOptions {
    std::optional<std::string> folder;
    std::optional<std::string> name;  ///< of the file; folders with "/" may stand in front
    std::optional<std::string> referer;
    std::optional<std::string> agent;
    std::optional<std::string> cookie;
    std::optional<std::string> proxy;  ///< an address
    std::optional<std::string> user;
    std::optional<std::string> password;
    std::optional<std::string> hash;          ///< "ALGO:HEX"
    std::optional<std::string> select;        ///< "1,3-5"
    std::optional<std::string> trackers;      ///< that a torrent gets besides, "," between
    std::optional<std::string> not_trackers;  ///< that it loses before, likewise; "*": all
    std::optional<std::string> gid;           ///< 16 hexadecimal digits, lower case
    std::optional<std::int64_t> connections;
    std::optional<std::int64_t> per_server;
    std::optional<std::int64_t> down_limit;  ///< bytes a second; 0: none
    std::optional<std::int64_t> up_limit;    ///< bytes a second; 0: none
    std::optional<double> seed_ratio;       ///< a torrent is shared until so much of it was sent; 0: no bound
    std::optional<std::int64_t> seed_time;  ///< seconds that it is shared at most; 0: it is not shared
    std::optional<bool> paused;
    std::optional<bool> overwrites;
    std::optional<bool> ends_first;  ///< the beginnings and ends of a torrent's files come before all else
    std::optional<std::int64_t> most_peers;  ///< of a torrent, at once

    /// The connections for a job with this many addresses; none where nothing was asked for.
    [[nodiscard]] std::optional<std::int64_t> connections_for(std::size_t addresses) const;
    /// Takes the options that the other one asks for.
    void take(const JobOptions& other);
};

/// The options of the program. `job`: what jobs get where they ask for nothing.
struct GlobalOptions {
    std::optional<std::int64_t> jobs_at_once;
    std::optional<std::int64_t> down_limit;  ///< bytes a second, for all together; 0: none
    std::optional<std::int64_t> up_limit;
    std::optional<std::int64_t> split_size;  ///< bytes
    std::optional<std::int64_t> most_peers;  ///< of each torrent, at once
    JobOptions job;
};

/// Reads an object of options. Words that are not known and values of a wrong type are passed over; a value
/// that cannot be used is a fault that names its word.
std::optional<Fault> read_options(const Json& words, JobOptions& into);
std::optional<Fault> read_options(const Json& words, GlobalOptions& into);

/// Writes them so that reading gives the same options: all values are texts, "header" is an array of them.
Json write_options(const JobOptions& options);
Json write_options(const GlobalOptions& options);

}  // namespace vantlow::rpc
