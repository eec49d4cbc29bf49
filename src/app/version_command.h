// `vantlow --version`.
#pragma once

#include "app/application.h"
#include "app/exit.h"
#include "app/global_options.h"

namespace vantlow {

/// Prints the version, the platform and which run-time libraries load.
Exit run_version(CFerrywellApp& app, const GlobalOptions& global);

}  // namespace vantlow
