// The properties of one job or of several at once.
#pragma once

#include <string>
#include <vector>

#include "engine/engine.h"

class wxWindow;

namespace vantlow {

/// Shows them and changes what was changed there, on all of the jobs. True when anything was. Sentences of
/// what failed are appended to `faults`.
bool edit_properties(wxWindow& parent, Engine& engine, const std::vector<Guid>& jobs,
                     std::vector<std::string>& faults);

}  // namespace vantlow
