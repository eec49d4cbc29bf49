// Hosts that want to be reached over TLS only (RFC 6797).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "base/mutex.h"
#include "transfer/connection/keepsakes.h"

namespace vantlow {

/// Remembers them for the run. Bounded: 1,000 hosts; the one that would be forgotten next goes first. Any
/// thread may call.
class StrictHosts : public Keepsake {
  public:
    /// Takes a Strict-Transport-Security field. Only what came over TLS with a certificate that was checked
    /// may be handed over: anybody can say it otherwise. A field that is not well-formed and an address in
    /// place of a name change nothing.
    void take(std::string_view field, std::string_view host, std::int64_t now);
    /// Whether no host has said so yet.
    [[nodiscard]] bool is_empty() const;
    /// Whether the host, or one above it with its subdomains, has said so (seconds since 1970).
    [[nodiscard]] bool contains(std::string_view host, std::int64_t now) const;

  private:
    struct Entry {
        std::int64_t expires = 0;
        bool subdomains = false;
    };

    mutable Mutex mutex_;
    std::map<std::string, Entry, std::less<>> hosts_ VANTLOW_GUARDED_BY(mutex_);  ///< lower case
};

}  // namespace vantlow
