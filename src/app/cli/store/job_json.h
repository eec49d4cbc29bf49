// A job as `list` and `show` print it with --json.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "app/process/job_view.h"

namespace vantlow {

/// Returns the fields of `list --json`: beside those that every job has "error" where it failed, and those
/// that add_wait() adds.
nlohmann::ordered_json list_json(const JobView& view);
/// Returns the fields of `show --json`: the same and more. Moments are ISO 8601, null where there was none
/// yet.
nlohmann::ordered_json show_json(const JobView& view);

}  // namespace vantlow
