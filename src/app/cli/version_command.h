// `vantlow --version`.
#pragma once

#include "app/cli/global_options.h"
#include "app/process/application.h"
#include "app/process/exit_status.h"

namespace vantlow {

/// Prints the version, the platform and which run-time libraries load.
Exit run_version(CFerrywellApp& app, const GlobalOptions& global);

}  // namespace vantlow
