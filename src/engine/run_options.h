// The options of a job's run: those of its record, then the settings, the proxy list and the environment.
#pragma once

#include <cstdint>
#include <string>

#include "store/settings.h"
#include "transfer/job/main_thread.h"

namespace vantlow {

/// Why the program's own proxy cannot be used.
struct ProxyFault {
    enum class Kind {
        none,
        setting,  ///< "Connection"/"Proxy" names no proxy
        number,   ///< it names a number that the proxy list has not: `number`
        list,     ///< the proxy list cannot be read: `text` says why
        job,      ///< the job's own proxy is not an address of one
    };
    Kind kind = Kind::none;
    std::int64_t number = 0;
    std::string text{};

    [[nodiscard]] bool ok() const noexcept { return kind == Kind::none; }
    /// A sentence for the log of a job, UTF-8.
    [[nodiscard]] std::string text_for_people() const;
};

/// Gives a run without a proxy of its own the program's: that of "Connection"/"Proxy" (an address as --proxy
/// takes it, the number of a proxy of the list, or "none"), else those of the environment: http_proxy,
/// https_proxy, ftp_proxy, all_proxy and no_proxy, in lower case or in upper case (http_proxy in lower case
/// only, since a web server lets its clients set the other one). A variable that cannot be used is a fault
/// only for connections that would use it.
ProxyFault add_program_proxies(const Settings& settings, const std::u16string& data_folder, RunOptions& run);

/// Reads the options of a job's run from its record, the program's proxies included, but not its agent. Where
/// the wanted proxy cannot be used, `fault` says why and the options hold a proxy that reaches nobody,
/// because a direct connection may be just what must not happen.
RunOptions run_options_of(const CJobNode& job, const Settings& settings, const std::u16string& data_folder,
                          ProxyFault& fault);

/// The one proxy that a torrent's trackers and peers are reached through, as far as `run` has any.
ProxyPlan torrent_proxy(const RunOptions& run);

}  // namespace vantlow
