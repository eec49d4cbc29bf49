#include "transfer/http/auth_digest.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr const char* nonce_count = "00000001";

std::optional<std::string> part(std::string_view challenge, std::string_view key) {
    const std::string lower = ascii_lower(challenge);
    const auto at = lower.find(key);
    if (at == std::string::npos) return std::nullopt;
    challenge.remove_prefix(at + key.size());
    if (challenge.starts_with('"')) {
        challenge.remove_prefix(1);
        return std::string(challenge.substr(0, challenge.find('"')));
    }
    return std::string(trim(challenge.substr(0, challenge.find(','))));
}

// A quote or a backslash in a name would end it early (RFC 9110, 5.6.4).
std::string quotable(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

}  // namespace

CAuthDigest::CAuthDigest(std::string_view challenge)
    : nonce(part(challenge, "nonce=").value_or("")),
      opaque(part(challenge, "opaque=")),
      qop(part(challenge, "qop=").value_or("")),
      algorithm(part(challenge, "algorithm=").value_or("")),
      realm(part(challenge, "realm=").value_or("")),
      stale(iequals(part(challenge, "stale=").value_or(""), "true")) {}

bool CAuthDigest::is_sha256() const {
    return iequals(algorithm, "sha-256") || iequals(algorithm, "sha-256-sess");
}

// "auth" is taken of a list: the requests have no body to protect.
std::string CAuthDigest::chosen_qop() const {
    std::string integrity;
    for (std::string_view one : split(qop, ',')) {
        one = trim(one);
        if (iequals(one, "auth")) return "auth";
        if (iequals(one, "auth-int")) integrity = "auth-int";
    }
    return integrity;
}

bool CAuthDigest::can_answer(const DigestOperations& operations) const {
    if (nonce.empty() || operations.digest == nullptr) return false;
    if (!qop.empty() && chosen_qop().empty()) return false;
    if (is_sha256()) return operations.response != nullptr;
    return algorithm.empty() || iequals(algorithm, "md5") || iequals(algorithm, "md5-sess");
}

std::optional<std::string> CAuthDigest::answer(const DigestOperations& operations,
                                               const DigestRequest& request) const {
    if (!can_answer(operations)) return std::nullopt;
    std::array<char, 65> cnonce{};
    const std::string time = std::to_string(request.time);
    if (operations.digest(nullptr, time.c_str(), cnonce.data(), cnonce.size()) != 1) return std::nullopt;
    const std::string protection = chosen_qop();
    VantlowDigest parts{};
    parts.qop = protection.c_str();
    parts.algorithm = algorithm.c_str();
    parts.nonce = nonce.c_str();
    parts.realm = realm.c_str();
    parts.user = request.user.c_str();
    parts.password = request.password.c_str();
    parts.method = request.method.c_str();
    parts.uri = request.uri.c_str();
    parts.cnonce = cnonce.data();
    parts.nc = nonce_count;
    std::array<char, 65> response{};
    const int done = is_sha256() ? operations.response(&parts, response.data(), response.size())
                                 : operations.digest(&parts, nullptr, response.data(), response.size());
    if (done != 1) return std::nullopt;
    // RFC 7616 wants the word bare; older servers were met with quotes, and still are.
    const std::string quote = is_sha256() ? "" : "\"";
    std::string line = "username=\"" + quotable(request.user) + "\",realm=\"" + realm + "\",nonce=\"" +
                       nonce + "\",uri=\"" + request.uri + "\",cnonce=\"" + cnonce.data() +
                       "\",nc=" + nonce_count + ",response=\"" + response.data() + "\"";
    if (!is_sha256() || !protection.empty()) line += ",qop=" + quote + protection + quote;
    if (!algorithm.empty()) line += ",algorithm=" + algorithm;
    if (opaque) line += ",opaque=\"" + *opaque + "\"";
    return line;
}

}  // namespace vantlow
