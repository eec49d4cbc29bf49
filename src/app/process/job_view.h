// A job as its clients present it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace vantlow {

/// A job at one moment: the store's record, with the progress where it runs. The record and its category
/// outlive it.
struct JobView {
    const CJobNode& job;
    const CClassNode& category;
    std::optional<JobProgress> progress;   ///< none: the job does not run
    bool is_shared = false;                ///< a finished torrent that is given to others
    bool is_moved = false;                 ///< its files are on their way to another place
    std::optional<FileMoveProgress> move;  ///< how far they are, once they go
    Done last_move{};                      ///< why they could not be moved, the last time

    JobView(const Engine& engine, const CJobNode& shown);
    [[nodiscard]] std::string address() const { return address_of(job); }  ///< without credentials
    [[nodiscard]] std::u16string path() const;
    [[nodiscard]] std::string folder() const;
    [[nodiscard]] std::string file() const;   ///< empty while it is not known
    [[nodiscard]] std::int64_t size() const;  ///< -1 while unknown
    [[nodiscard]] std::int64_t done() const;  ///< downloaded bytes
    /// The state of the record, but waiting for a job that runs and has no place at its server yet.
    [[nodiscard]] JobState state() const;
    /// The word for it: job_state_name() of the state, "sharing" or "moving".
    [[nodiscard]] std::string_view state_word() const;
    [[nodiscard]] std::string error() const { return error_of(job); }

    // The same of the record alone, for a job that does not run.
    static std::string address_of(const CJobNode& job);
    /// Other addresses of the same file, without credentials.
    static std::vector<std::string> mirrors_of(const CJobNode& job);
    static std::int64_t size_of(const CJobNode& job) noexcept;
    static std::int64_t done_of(const CJobNode& job) noexcept;
    /// The reason of a failure, UTF-8; empty where it did not fail.
    static std::string error_of(const CJobNode& job);
};

}  // namespace vantlow
