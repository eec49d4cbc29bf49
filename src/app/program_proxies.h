// The proxies of the whole program: its settings, its list, the environment.
#pragma once

#include <memory>
#include <string>

#include "app/application.h"
#include "app/global_options.h"
#include "transfer/job/main_thread.h"

namespace vantlow {

/// Gives a run without a proxy of its own the program's: that of "Connection"/"Proxy" (an address as --proxy
/// takes it, the number of a proxy of the list, or "none"), else those of the environment: http_proxy,
/// https_proxy, ftp_proxy, all_proxy and no_proxy, in lower case or, but for http_proxy (which a web server
/// would let its clients set), in upper case. A complaint when the setting cannot be used; a variable that
/// cannot be used is one only for what would go through it.
Complaint add_program_proxies(CFerrywellApp& app, RunOptions& run);

}  // namespace vantlow
