// Host names: their ASCII form over libidn2, and whose they are over libpsl.
#include <idn2.h>
#include <libpsl.h>

#include <cstring>
#include <memory>

#include "runtime/operations.h"

namespace {

// The list is read once and kept for the process.
const psl_ctx_t* suffixes() noexcept {
#ifdef _WIN32
    return psl_builtin();  // the system has no list, and a folder below a drive's root may be anybody's
#else
    static const std::unique_ptr<psl_ctx_t, decltype(&psl_free)> list(
        psl_latest(nullptr), &psl_free);  // the system's, or the built-in one if it is newer
    return list.get();
#endif
}

}  // namespace

extern "C" {

VANTLOW_EXPORT Names_ToAscii_t Names_ToAscii;
VANTLOW_EXPORT Names_IsPublicSuffix_t Names_IsPublicSuffix;

// Names are treated as browsers do: "ß" and its like stay distinct names, and an underscore is no fault.
std::size_t Names_ToAscii(const char* name, char* out, std::size_t room) {
    if (name == nullptr || out == nullptr) return 0;
    char* ascii = nullptr;
    if (idn2_to_ascii_8z(name, &ascii, IDN2_NONTRANSITIONAL | IDN2_NFC_INPUT) != IDN2_OK) return 0;
    const std::size_t size = std::strlen(ascii);
    const bool fits = size > 0 && size < room;
    if (fits) std::memcpy(out, ascii, size + 1);
    idn2_free(ascii);
    return fits ? size : 0;
}

int Names_IsPublicSuffix(const char* domain) {
    const psl_ctx_t* const list = suffixes();
    if (domain == nullptr || list == nullptr) return -1;
    return psl_is_public_suffix(list, domain) != 0 ? 1 : 0;
}

}  // extern "C"
