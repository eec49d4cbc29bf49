// The methods about times: the week plan, and when jobs start and stop by the clock.
#pragma once

#include "engine/engine.h"
#include "rpc/methods.h"

namespace vantlow {

/// Adds "vantlow.schedule" and its kin over an engine that outlives the table. docs/remote.md describes them.
void add_schedule_methods(rpc::MethodTable& table, Engine& engine);

}  // namespace vantlow
