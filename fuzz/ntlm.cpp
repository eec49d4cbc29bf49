// Challenge messages of NTLM, read by both libraries.
#include <array>

#include "fuzz.h"
#include "libraries.h"

void vantlow::fuzz::run(std::string_view input) {
    std::vector<char> out(2048 + input.size());
    const std::size_t size =
        NTLM1_ChallengeResponse(input.data(), input.size(), "DOMAIN\\user", "secret", out.data(), out.size());
    CHECK(size <= out.size());
    if (size > 0) {
        // Without enough room there is no message.
        CHECK(NTLM1_ChallengeResponse(input.data(), input.size(), "DOMAIN\\user", "secret", out.data(),
                                      size - 1) == 0);
    }
    VantlowNtlm* const challenge = NTLM_Challenge(input.data(), input.size());
    CHECK((challenge != nullptr) == (size > 0));
    if (challenge != nullptr)
        CHECK(NTLM_Response(challenge, "DOMAIN\\user", "secret", out.data(), out.size()) == size);
    NTLM_Destroy(challenge);
}
