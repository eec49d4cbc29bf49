// `vantlow get`: fetches now, in this terminal, and ends.
#pragma once

#include "app/application.h"
#include "app/get_options.h"

namespace vantlow {

/// Runs the whole command. The application's settings get the command's overrides; its stop is requested by
/// Ctrl-C.
Exit run_get(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options);

}  // namespace vantlow
