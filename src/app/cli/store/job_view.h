// A job as lists show it.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>

#include "app/cli/store/store_command.h"
#include "transfer/job/progress.h"

namespace vantlow {

/// The moment of a job, from the store or from who runs it.
struct JobView {
    const CJobNode& job;
    const CClassNode& category;
    std::optional<JobProgress> progress;  ///< of a job that runs

    JobView(StoreCommand& command, const CJobNode& shown);
    [[nodiscard]] std::string address() const;  ///< without credentials
    [[nodiscard]] std::u16string path() const;
    [[nodiscard]] std::string folder() const;
    [[nodiscard]] std::string file() const;   ///< empty while it is not known
    [[nodiscard]] std::int64_t size() const;  ///< -1 while unknown
    [[nodiscard]] std::int64_t done() const;  ///< bytes that are there
    /// One that runs but has no place at its server yet is waiting.
    [[nodiscard]] JobState state() const;
    [[nodiscard]] std::string error() const;  ///< UTF-8: why the job failed; empty where it did not
};

/// Adds what a job waits for that tries again after a failure: "waitingFor", "attempts" and "nextTry" (ISO
/// 8601, null while the attempt is under way); nothing where it does not.
void add_wait(nlohmann::ordered_json& json, const JobProgress& progress);

/// What `list --json` tells of a job: beside the fields that every job has "error" where it failed, and what
/// add_wait() adds.
nlohmann::ordered_json list_json(const JobView& view);
/// What `show --json` tells: the same and more.
nlohmann::ordered_json show_json(const JobView& view);

}  // namespace vantlow
