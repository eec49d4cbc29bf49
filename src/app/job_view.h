// A job as lists show it.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>

#include "app/store_command.h"
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
};

/// What `list --json` tells of a job.
nlohmann::ordered_json list_json(const JobView& view);
/// What `show --json` tells: the same and more.
nlohmann::ordered_json show_json(const JobView& view);

}  // namespace vantlow
