// The dialogs over job list files: jobs out of them and into them.
#pragma once

#include <string>

#include "app/window/model/window_model.h"

class wxWindow;

namespace vantlow {

/// Asks for a file and files its jobs in this category. Returns a sentence on what was done or failed; empty:
/// nothing was wanted.
std::string import_jobs(wxWindow& parent, WindowModel& model, const Guid& category);

/// Asks which jobs are to be written and where to, and writes them. Returns as above.
std::string export_jobs(wxWindow& parent, WindowModel& model);

}  // namespace vantlow
