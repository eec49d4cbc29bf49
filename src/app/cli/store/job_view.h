// A job as `list` and `show` present it.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>

#include "app/cli/store/store_command.h"
#include "transfer/job/progress.h"

namespace vantlow {

/// A job at one moment: the store's record, with the progress where it runs. The record and its category
/// outlive it.
struct JobView {
    const CJobNode& job;
    const CClassNode& category;
    std::optional<JobProgress> progress;  ///< none: the job does not run

    JobView(StoreCommand& command, const CJobNode& shown);
    [[nodiscard]] std::string address() const;  ///< without credentials
    [[nodiscard]] std::u16string path() const;
    [[nodiscard]] std::string folder() const;
    [[nodiscard]] std::string file() const;   ///< empty while it is not known
    [[nodiscard]] std::int64_t size() const;  ///< -1 while unknown
    [[nodiscard]] std::int64_t done() const;  ///< downloaded bytes
    /// The state of the record, but waiting for a job that runs and has no place at its server yet.
    [[nodiscard]] JobState state() const;
    [[nodiscard]] std::string error() const;  ///< the reason of a failure, UTF-8; empty where it did not fail
};

/// Returns the fields of `list --json`: beside those that every job has "error" where it failed, and those
/// that add_wait() adds.
nlohmann::ordered_json list_json(const JobView& view);
/// Returns the fields of `show --json`: the same and more. Moments are ISO 8601, null where there was none
/// yet.
nlohmann::ordered_json show_json(const JobView& view);

}  // namespace vantlow
