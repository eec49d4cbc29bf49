#include "runtime/login/answers.h"

#include <algorithm>
#include <cstring>

#include "runtime/login/primitives.h"

namespace vantlow::login {
namespace {

std::string lower(const char* text) {
    std::string out(text != nullptr ? text : "");
    std::transform(out.begin(), out.end(), out.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return out;
}

std::string_view part(const char* text) {
    return text != nullptr ? std::string_view(text) : std::string_view{};
}

struct Algorithm {
    Hash hash;
    bool session;
};

std::optional<Algorithm> find_algorithm(const char* name) {
    const std::string word = lower(name);
    if (word.empty() || word == "md5") return Algorithm{Hash::md5, false};
    if (word == "md5-sess") return Algorithm{Hash::md5, true};
    if (word == "sha-256") return Algorithm{Hash::sha256, false};
    if (word == "sha-256-sess") return Algorithm{Hash::sha256, true};
    return std::nullopt;
}

// The digest of the parts, joined with colons, in hexadecimal.
std::string joined(Hash hash, std::initializer_list<std::string_view> parts) {
    std::size_t size = parts.size();
    for (const std::string_view one : parts) size += one.size();
    std::string text;
    text.reserve(size);  // growing would leave pieces of a password behind
    for (const std::string_view& one : parts) {
        if (&one != parts.begin()) text += ':';
        text += one;
    }
    std::string result = hex(digest(hash, {view(text)}));
    wipe(text);
    return result;
}

}  // namespace

std::string hex(View bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

std::optional<std::string> digest_response(const VantlowDigest& parts) {
    const auto algorithm = find_algorithm(parts.algorithm);
    const std::string qop = lower(parts.qop);
    if (!algorithm || (!qop.empty() && qop != "auth" && qop != "auth-int")) return std::nullopt;
    const Hash hash = algorithm->hash;
    std::string a1 = joined(hash, {part(parts.user), part(parts.realm), part(parts.password)});
    if (algorithm->session) a1 = joined(hash, {a1, part(parts.nonce), part(parts.cnonce)});
    // The requests made here have no body, so its digest is that of nothing.
    const std::string a2 = qop == "auth-int"
                               ? joined(hash, {part(parts.method), part(parts.uri), joined(hash, {""})})
                               : joined(hash, {part(parts.method), part(parts.uri)});
    std::string response =
        qop.empty() ? joined(hash, {a1, part(parts.nonce), a2})
                    : joined(hash, {a1, part(parts.nonce), part(parts.nc), part(parts.cnonce), qop, a2});
    wipe(a1);
    if (response.empty()) return std::nullopt;
    return response;
}

bool put(const std::string& text, char* out, std::size_t room) noexcept {
    if (out == nullptr || text.size() + 1 > room) return false;
    std::memcpy(out, text.c_str(), text.size() + 1);
    return true;
}

}  // namespace vantlow::login
