// The methods of the control API that are this program's own, under "vantlow.".
#pragma once

#include <functional>

#include "app/process/live_jobs.h"
#include "engine/engine.h"
#include "rpc/methods.h"
#include "store/settings.h"

namespace vantlow {

/// The things that the methods work on; all outlive the table.
struct VantlowMethods {
    Engine& engine;
    Settings& settings;
    const LiveJobs& live;
    std::string session;  ///< of this run: revisions of another one mean nothing
    /// Has the system follow a setting that was changed (app/process/system_settings.h).
    std::function<FileError(std::u16string_view section, std::u16string_view key)> follow;
};

/// Adds the methods. Values that are not known are null, sizes are bytes, moments ISO 8601. docs/remote.md
/// describes them.
void add_vantlow_methods(rpc::MethodTable& table, VantlowMethods parts);

}  // namespace vantlow
