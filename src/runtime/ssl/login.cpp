// Logins: an NTLM challenge as an object, and Digest with every algorithm.
#include <new>

#include "runtime/login/answers.h"
#include "runtime/operations.h"

using namespace vantlow::login;

struct VantlowNtlm {
    NtlmChallenge challenge;
};

extern "C" {

VANTLOW_EXPORT NTLM_Challenge_t NTLM_Challenge;
VANTLOW_EXPORT NTLM_Response_t NTLM_Response;
VANTLOW_EXPORT NTLM_Destroy_t NTLM_Destroy;
VANTLOW_EXPORT WDigest_Response_t WDigest_Response;

VantlowNtlm* NTLM_Challenge(const void* challenge, std::size_t size) try {
    if (challenge == nullptr) return nullptr;
    auto parsed = NtlmChallenge::parse({static_cast<const std::uint8_t*>(challenge), size});
    return parsed ? new (std::nothrow) VantlowNtlm{*std::move(parsed)} : nullptr;
} catch (...) {
    return nullptr;  // no memory
}

std::size_t NTLM_Response(const VantlowNtlm* ntlm, const char* user, const char* password, void* out,
                          std::size_t room) try {
    if (ntlm == nullptr || user == nullptr || password == nullptr) return 0;
    return put_message(ntlm_response(ntlm->challenge, user, password, NtlmChance::now()), out, room);
} catch (...) {
    return 0;  // no memory
}

void NTLM_Destroy(VantlowNtlm* ntlm) {
    delete ntlm;
}

int WDigest_Response(const VantlowDigest* parts, char* out, std::size_t room) try {
    if (parts == nullptr) return 0;
    const auto response = digest_response(*parts);
    return response && put(*response, out, room) ? 1 : 0;
} catch (...) {
    return 0;  // no memory
}

}  // extern "C"
