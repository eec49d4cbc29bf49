// The answer to a Digest challenge (RFC 2617, RFC 7616).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/operations.h"

namespace vantlow {

/// The operations that compute digests, of run-time libraries; any of which may be missing.
struct DigestOperations {
    Digest2617_t* digest = nullptr;          ///< MD5, and the client nonce
    WDigest_Response_t* response = nullptr;  ///< SHA-256
};

/// Whose answer it is to what.
struct DigestRequest {
    std::string user;
    std::string password;
    std::string method;
    std::string uri;
    std::int64_t time = 0;  ///< seconds since 1970; the client nonce is made of it
};

/// The parts of a challenge, and the answer that they lead to.
class CAuthDigest {
  public:
    /// Reads what stands behind the word "Digest": for each key the first place where it occurs; a quoted
    /// value runs to the next quote, another one to the next comma.
    explicit CAuthDigest(std::string_view challenge);

    std::string nonce;
    std::optional<std::string> opaque;
    std::string qop;        ///< as the server lists it
    std::string algorithm;  ///< empty: unsaid
    std::string realm;
    bool stale = false;  ///< the credentials were right, the nonce was too old

    /// True when the algorithm and the quality of protection are known and the operations are there.
    [[nodiscard]] bool can_answer(const DigestOperations& operations) const;
    /// The text behind "Digest " in the answer; none when it cannot be computed.
    [[nodiscard]] std::optional<std::string> answer(const DigestOperations& operations,
                                                    const DigestRequest& request) const;

  private:
    [[nodiscard]] bool is_sha256() const;
    [[nodiscard]] std::string chosen_qop() const;
};

}  // namespace vantlow
