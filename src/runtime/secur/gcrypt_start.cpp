#include "runtime/secur/gcrypt_start.h"

#include <gcrypt.h>

namespace vantlow::secur {

bool start_gcrypt() noexcept {
    static const bool ready = [] {
        if (gcry_check_version(GCRYPT_VERSION) == nullptr) return false;
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);  // locked pages are few; what is secret is wiped instead
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        return true;
    }();
    return ready;
}

}  // namespace vantlow::secur
