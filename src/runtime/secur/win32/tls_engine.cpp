// The engine that connections share: trusted roots, and SChannel's credentials.
#define SCHANNEL_USE_BLACKLISTS
#include "runtime/secur/win32/tls.h"

// clang-format off
#include <subauth.h>
#include <schannel.h>
// clang-format on

#include <array>
#include <cstdio>
#include <new>

namespace vantlow::secur {
namespace {

constexpr DWORD too_old =
    SP_PROT_SSL2_CLIENT | SP_PROT_SSL3_CLIENT | SP_PROT_TLS1_0_CLIENT | SP_PROT_TLS1_1_CLIENT;
// The certificate is judged by tls_trust.cpp, and no client certificate is looked for.
constexpr DWORD flags = SCH_CRED_MANUAL_CRED_VALIDATION | SCH_CRED_NO_DEFAULT_CREDS | SCH_USE_STRONG_CRYPTO;

SECURITY_STATUS acquire_with(void* wanted, CredHandle* handle) noexcept {
    std::array<wchar_t, 64> package{};
    std::wstring(UNISP_NAME_W).copy(package.data(), package.size() - 1);
    TimeStamp until{};
    return AcquireCredentialsHandleW(nullptr, package.data(), SECPKG_CRED_OUTBOUND, nullptr, wanted, nullptr,
                                     nullptr, handle, &until);
}

// The statuses that a server with nothing in common with this system leads to; the system's own words for
// them mislead.
const char* known_words(SECURITY_STATUS status) noexcept {
    switch (status) {
        case SEC_E_ALGORITHM_MISMATCH:
        case SEC_E_UNSUPPORTED_FUNCTION:
            return "the two sides have no version or cipher suite in common";
        case SEC_E_ILLEGAL_MESSAGE:
        case SEC_E_INTERNAL_ERROR:
            return "the server refused, or sent an invalid answer";
        default:
            return nullptr;
    }
}

}  // namespace

SECURITY_STATUS Credentials::acquire() noexcept {
    TLS_PARAMETERS bounds{};
    bounds.grbitDisabledProtocols = too_old;
    SCH_CREDENTIALS newest{};
    newest.dwVersion = SCH_CREDENTIALS_VERSION;
    newest.dwFlags = flags;
    newest.cTlsParameters = 1;
    newest.pTlsParameters = &bounds;
    SECURITY_STATUS status = acquire_with(&newest, &handle_);
    if (status != SEC_E_OK) {
        // Systems without the newest structure have no TLS 1.3 either.
        SCHANNEL_CRED older{};
        older.dwVersion = SCHANNEL_CRED_VERSION;
        older.dwFlags = flags;
        older.grbitEnabledProtocols = SP_PROT_TLS1_2_CLIENT;
        status = acquire_with(&older, &handle_);
    }
    acquired_ = status == SEC_E_OK;
    return status;
}

Credentials::~Credentials() {
    if (acquired_) FreeCredentialsHandle(&handle_);
}

std::wstring to_wide(std::string_view utf8) {
    const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), wide.data(), size);
    return wide;
}

std::string from_wide(std::wstring_view wide) {
    const auto length = static_cast<int>(wide.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), size, nullptr, nullptr);
    return utf8;
}

std::string status_words(SECURITY_STATUS status) {
    if (const char* const known = known_words(status)) return known;
    std::array<wchar_t, 300> text{};
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK, nullptr,
        static_cast<DWORD>(status), 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    std::string words = from_wide({text.data(), length});
    while (!words.empty() && (words.back() == ' ' || words.back() == '.')) words.pop_back();
    if (!words.empty()) return words;
    std::array<char, 24> number{};
    std::snprintf(number.data(), number.size(), "error 0x%08lx", static_cast<unsigned long>(status));
    return number.data();
}

}  // namespace vantlow::secur

using namespace vantlow::secur;

extern "C" VANTLOW_EXPORT VantlowTlsEngine* SSL_Init(const void* roots, size_t size, char* error,
                                                     size_t room) {
    ErrorText words;
    words.set(error, room);
    try {
        auto engine = std::make_unique<VantlowTlsEngine>();
        Credentials trial;
        if (const SECURITY_STATUS status = trial.acquire(); status != SEC_E_OK) {
            words.write("TLS cannot be set up: " + status_words(status) + ".");
            return nullptr;
        }
        if (roots != nullptr) {
            engine->roots = std::make_unique<CertificateStore>();
            if (!engine->roots->fill({static_cast<const char*>(roots), size})) {
                words.write("It holds no certificate in PEM or DER form.");
                return nullptr;
            }
        }
        return engine.release();
    } catch (...) {
        words.write("Not enough memory.");
    }
    return nullptr;
}

extern "C" VANTLOW_EXPORT void SSL_Thread_Exit() {}  // SChannel keeps nothing for threads
