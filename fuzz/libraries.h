// The operations of the run-time libraries, linked in here so that their parsers are watched, too.
#pragma once

#include "transfer/ftp/transfer.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/http/body.h"

extern "C" {
GZ_InflateInit_t GZ_InflateInit;
ZLib_InflateInit_t ZLib_InflateInit;
Raw_InflateInit_t Raw_InflateInit;
ZLib_Inflate_t ZLib_Inflate;
ZLib_InflateEnd_t ZLib_InflateEnd;
Digest2617_t Digest2617;
NTLM1_ChallengeResponse_t NTLM1_ChallengeResponse;
NTLM_Challenge_t NTLM_Challenge;
NTLM_Response_t NTLM_Response;
NTLM_Destroy_t NTLM_Destroy;
WDigest_Response_t WDigest_Response;
}

namespace vantlow::fuzz {

inline UnpackOperations unpack_operations() {
    return {GZ_InflateInit, ZLib_InflateInit, Raw_InflateInit, ZLib_Inflate, ZLib_InflateEnd};
}
inline InflateOperations zlib_operations() {
    return {ZLib_InflateInit, ZLib_Inflate, ZLib_InflateEnd};
}
inline LoginOperations login_operations() {
    return {
        {Digest2617, WDigest_Response}, NTLM1_ChallengeResponse, NTLM_Challenge, NTLM_Response, NTLM_Destroy};
}

}  // namespace vantlow::fuzz
