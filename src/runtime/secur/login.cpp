// Logins: Digest's client nonces and responses, NTLM's answers.
#include "runtime/login/answers.h"
#include "runtime/operations.h"

using namespace vantlow::login;

extern "C" {

VANTLOW_EXPORT Digest2617_t Digest2617;
VANTLOW_EXPORT NTLM1_ChallengeResponse_t NTLM1_ChallengeResponse;

int Digest2617(const VantlowDigest* parts, const char* text, char* out, std::size_t room) try {
    if (text != nullptr) return put(hex(digest(Hash::md5, {view(text)})), out, room) ? 1 : 0;
    if (parts == nullptr) return 0;
    const std::string algorithm(parts->algorithm != nullptr ? parts->algorithm : "");
    if (algorithm.find("256") != std::string::npos) return 0;  // RFC 2617 knows MD5 only
    const auto response = digest_response(*parts);
    return response && put(*response, out, room) ? 1 : 0;
} catch (...) {
    return 0;  // no memory
}

std::size_t NTLM1_ChallengeResponse(const void* challenge, std::size_t challenge_size, const char* user,
                                    const char* password, void* out, std::size_t room) try {
    if (challenge == nullptr || user == nullptr || password == nullptr) return 0;
    const auto parsed = NtlmChallenge::parse({static_cast<const std::uint8_t*>(challenge), challenge_size});
    if (!parsed) return 0;
    return put_message(ntlm_response(*parsed, user, password, NtlmChance::now()), out, room);
} catch (...) {
    return 0;  // no memory
}

}  // extern "C"
