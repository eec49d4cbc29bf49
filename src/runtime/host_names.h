// Host names, as the program knows them through libnames wherever it reads an address or a cookie.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/tables.h"

namespace vantlow {

/// While it lives, the host names of all threads go through this table, which outlives it. It is
/// process-wide, as the system's own name functions are; one at a time.
class HostNameScope {
  public:
    explicit HostNameScope(const NamesTable& table) noexcept;
    ~HostNameScope();
    HostNameScope(const HostNameScope&) = delete;
    HostNameScope& operator=(const HostNameScope&) = delete;
};

/// True when names beyond ASCII can be used, which needs the library.
bool has_host_names() noexcept;

/// Converts a host's name (UTF-8, no IPv6 literal) to ASCII, the form that is sent (UTS 46,
/// non-transitional). ASCII names stay as they are. None for a name that UTS 46 refuses and, where the
/// library is missing, for every other name. The result must be checked as the name was: a full-width slash
/// has become a slash.
std::optional<std::string> ascii_host(std::string_view name);

/// True when a domain (in ASCII, any case) belongs to nobody in particular: "com", "co.uk". Without the
/// library this is true of every name that has no dot inside it.
bool is_public_suffix(std::string_view domain);

}  // namespace vantlow
