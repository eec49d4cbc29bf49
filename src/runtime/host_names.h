// What the program knows of host names through libnames, wherever it reads an address or a cookie.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/tables.h"

namespace vantlow {

/// While it lives all threads' host names go through this table, which outlives it; process-wide as the
/// system's own name functions are, one at a time.
class HostNameScope {
  public:
    explicit HostNameScope(const NamesTable& table) noexcept;
    ~HostNameScope();
    HostNameScope(const HostNameScope&) = delete;
    HostNameScope& operator=(const HostNameScope&) = delete;
};

/// Whether names beyond ASCII can be used: the library is there.
bool has_host_names() noexcept;

/// A host's name (UTF-8, no IPv6 literal) as it goes out: in ASCII (UTS 46, non-transitional). ASCII names
/// stay as they are. None for what UTS 46 refuses and, where the library is missing, for every other name.
/// What comes out is to be looked at as the name was: a full-width slash has become a slash.
std::optional<std::string> ascii_host(std::string_view name);

/// Whether nobody in particular owns a domain (in ASCII, any case): "com", "co.uk". Without the library every
/// name without a dot inside it.
bool is_public_suffix(std::string_view domain);

}  // namespace vantlow
