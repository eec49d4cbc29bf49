// The state of a running job, as it is shown, and the outcome of its run.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/result.h"

namespace vantlow {

/// A moment of a running job. Taken from any thread.
struct JobProgress {
    std::int64_t size = -1;     ///< bytes; -1 while unknown
    std::int64_t done = 0;      ///< bytes of the file that are there
    std::int64_t received = 0;  ///< body bytes taken from the network in this run
    std::int64_t head = 0;      ///< bytes from the file's beginning that can be read from the partial file
    std::int64_t sent = 0;      ///< bytes given to others in this run
    bool shares = false;        ///< everything is there, and is given to others
    int connections = 0;        ///< that receive now
    std::u16string path;        ///< where the file will stand; empty while undecided
    /// The ranges that are still missing, in file order; `active` where a connection works on it.
    struct Missing {
        std::int64_t start = 0;
        std::int64_t end = 0;
        bool active = false;
        int worker = 0;  ///< number of the connection that works on it; 0: none
    };
    std::vector<Missing> missing;
    std::string notice;  ///< the last trouble that the job goes on from, UTF-8; empty when there is none
    /// Why no connection receives, UTF-8; empty while one does, or the job has just begun.
    std::string waiting_for;
    int attempts = 0;  ///< in a row that brought nothing, while `waiting_for` says something
    std::optional<Clock::time_point> next_try;  ///< when the next attempt is made, where that is not now
    int restarts = 0;  ///< times that the file on the server was another version, and everything began anew
    /// No connection yet, since the server has as many as it may have: see ServerLimits.
    bool awaits_place = false;
    /// Bytes that were read so far, while what is on the disk already is held against its hashes.
    std::optional<std::int64_t> checked{};
};

/// How a job's run ended.
struct JobOutcome {
    Result result;
    std::u16string path;  ///< the finished file, or where it would have stood
    std::int64_t size = -1;
    std::int64_t received = 0;
    double seconds = 0;
    int restarts = 0;          ///< as in JobProgress: "The file on the server is newer, download it again."
    std::string media_type{};  ///< as the server said, lower case, without parameters; may be empty
    bool skipped = false;      ///< the file was there already, as the server has it: nothing was fetched
    std::u16string
        distrusted{};  ///< the address, behind redirects, whose server was not trusted last; may be empty
};

}  // namespace vantlow
