#include "runtime/login/answers.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "runtime/login/primitives.h"

namespace vantlow::login {
namespace {

// Flags of a message.
constexpr std::uint32_t with_unicode = 0x00000001;
constexpr std::uint32_t with_session_security = 0x00080000;
constexpr std::uint32_t with_target_info = 0x00800000;
// The flags of the challenge that the answer repeats: the code page (1, 2), the target (4), NTLM (0x200),
// always sign (0x8000), session security, target information, 128 and 56 bits.
constexpr std::uint32_t kept_flags = 0xA0888207;

constexpr std::string_view signature{"NTLMSSP\0", 8};
constexpr std::uint16_t attribute_end = 0;
constexpr std::uint16_t attribute_time = 7;

std::uint64_t number(View bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;) value = value << 8U | bytes[at + i];
    return value;
}

void put_number(Bytes& out, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void append(Bytes& out, View bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

// Takes one code point off the front of a UTF-8 text; a byte that is none counts as itself.
std::uint32_t next_point(std::string_view& text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    std::uint32_t point = length == 1 ? first : first & (0x7FU >> length);
    bool good = first < 0x80 || (first >= 0xC2 && first < 0xF5);
    for (std::size_t i = 1; good && i < length; ++i) {
        good = i < text.size() && (byte(i) & 0xC0U) == 0x80;
        if (good) point = point << 6U | (byte(i) & 0x3FU);
    }
    text.remove_prefix(good ? length : 1);
    return good ? point : first;
}

// The upper case that a user name needs: ASCII, Latin-1, Greek and Cyrillic, whose pairs lie at fixed
// distances.
std::uint32_t upper_point(std::uint32_t c) {
    if (c >= 'a' && c <= 'z') return c - 32;
    if ((c >= 0xE0 && c <= 0xFE && c != 0xF7) || (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2)) return c - 32;
    if (c == 0xFF) return 0x178;
    const bool even_upper = (c >= 0x100 && c <= 0x137) || (c >= 0x14A && c <= 0x177);
    if (even_upper && c != 0x131) return c & ~1U;
    if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return c % 2 == 0 ? c - 1 : c;
    if (c >= 0x430 && c <= 0x44F) return c - 32;
    if (c >= 0x450 && c <= 0x45F) return c - 80;
    return c;
}

Bytes utf16(std::string_view text, bool upper = false) {
    Bytes out;
    out.reserve(2 * text.size());  // growing would leave pieces of a password behind
    while (!text.empty()) {
        std::uint32_t point = next_point(text);
        if (upper) point = upper_point(point);
        if (point < 0x10000) {
            put_number(out, point, 2);
        } else {
            put_number(out, 0xD800 + ((point - 0x10000) >> 10U), 2);
            put_number(out, 0xDC00 + (point & 0x3FFU), 2);
        }
    }
    return out;
}

// The server's own time, with which version 2 answers where the challenge has it; none where it has not.
std::optional<std::uint64_t> time_of(View info) {
    while (info.size() >= 4) {
        const auto kind = static_cast<std::uint16_t>(number(info, 0, 2));
        const std::size_t size = number(info, 2, 2);
        if (kind == attribute_end || size > info.size() - 4) break;
        if (kind == attribute_time && size == 8) return number(info, 4, 8);
        info = info.subspan(4 + size);
    }
    return std::nullopt;
}

struct Answers {
    Bytes lm;
    Bytes nt;
};

Answers answer_v2(const NtlmChallenge& challenge, View nt_hash, std::string_view user,
                  std::string_view domain, const NtlmChance& chance) {
    Bytes key = hmac_md5(nt_hash, {utf16(user, true), utf16(domain)});
    const auto server_time = time_of(challenge.target_info);
    Bytes blob{1, 1, 0, 0, 0, 0, 0, 0};
    put_number(blob, server_time.value_or(chance.time), 8);
    append(blob, chance.client_nonce);
    put_number(blob, 0, 4);
    append(blob, challenge.target_info);
    put_number(blob, 0, 4);
    Answers answers;
    answers.nt = hmac_md5(key, {challenge.nonce, blob});
    append(answers.nt, blob);
    answers.lm = Bytes(24);
    if (!server_time) {
        answers.lm = hmac_md5(key, {challenge.nonce, chance.client_nonce});
        append(answers.lm, chance.client_nonce);
    }
    wipe(key);
    return answers;
}

Answers answer_v1(const NtlmChallenge& challenge, View nt_hash, const NtlmChance& chance) {
    Answers answers;
    if ((challenge.flags & with_session_security) != 0) {
        const Bytes session = digest(Hash::md5, {challenge.nonce, chance.client_nonce});
        if (session.size() < 8) return {};
        answers.lm.assign(chance.client_nonce.begin(), chance.client_nonce.end());
        answers.lm.resize(24);
        answers.nt = desl(nt_hash, View(session).first(8));
    } else {
        answers.nt = desl(nt_hash, challenge.nonce);
        answers.lm = answers.nt;
    }
    return answers;
}

// Builds the message: a header of fixed size whose fields point into the bytes behind it.
Bytes message(std::uint32_t flags, const Answers& answers, View domain, View user) {
    constexpr std::size_t header = 64;
    const std::array<View, 6> fields{answers.lm, answers.nt, domain, user, View{}, View{}};
    // The names come first, as in other clients' messages.
    constexpr std::array<std::size_t, 6> order{2, 3, 4, 0, 1, 5};
    std::array<std::size_t, 6> offsets{};
    Bytes payload;
    for (const std::size_t i : order) {
        offsets[i] = header + payload.size();
        append(payload, fields[i]);
    }
    Bytes out(signature.begin(), signature.end());
    put_number(out, 3, 4);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        put_number(out, fields[i].size(), 2);
        put_number(out, fields[i].size(), 2);
        put_number(out, offsets[i], 4);
    }
    put_number(out, flags, 4);
    append(out, payload);
    return out;
}

}  // namespace

std::optional<NtlmChallenge> NtlmChallenge::parse(View bytes) {
    constexpr std::size_t smallest = 32;
    constexpr std::size_t with_info = 48;
    if (bytes.size() < smallest || std::memcmp(bytes.data(), signature.data(), signature.size()) != 0 ||
        number(bytes, 8, 4) != 2) {
        return std::nullopt;
    }
    NtlmChallenge challenge;
    challenge.flags = static_cast<std::uint32_t>(number(bytes, 20, 4));
    std::copy_n(bytes.begin() + 24, challenge.nonce.size(), challenge.nonce.begin());
    if ((challenge.flags & with_target_info) != 0 && bytes.size() >= with_info) {
        const std::size_t size = number(bytes, 40, 2);
        const std::size_t offset = number(bytes, 44, 4);
        if (offset > bytes.size() || size > bytes.size() - offset) return std::nullopt;
        const View info = bytes.subspan(offset, size);
        challenge.target_info.assign(info.begin(), info.end());
    }
    return challenge;
}

std::optional<NtlmChance> NtlmChance::now() {
    constexpr std::uint64_t from_1601_to_1970 = 11644473600ULL * 10'000'000;
    NtlmChance chance;
    if (!fill_random(chance.client_nonce)) return std::nullopt;
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    chance.time =
        from_1601_to_1970 +
        static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>(
                since_1970)
                .count());
    return chance;
}

Bytes ntlm_response(const NtlmChallenge& challenge, std::string_view user, std::string_view password,
                    const std::optional<NtlmChance>& chance) {
    if (!chance) return {};
    std::string_view domain;
    if (const auto slash = user.find('\\'); slash != std::string_view::npos) {
        domain = user.substr(0, slash);
        user.remove_prefix(slash + 1);
    }
    Bytes secret = utf16(password);
    Bytes nt_hash = digest(Hash::md4, {secret});
    wipe(secret);
    if (nt_hash.empty()) return {};
    const bool v2 = !challenge.target_info.empty();
    const Answers answers =
        v2 ? answer_v2(challenge, nt_hash, user, domain, *chance) : answer_v1(challenge, nt_hash, *chance);
    wipe(nt_hash);
    if (answers.nt.empty()) return {};
    std::uint32_t flags = challenge.flags & kept_flags;
    const bool unicode = (flags & with_unicode) != 0;
    if (unicode) flags &= ~std::uint32_t{2};  // one of the two
    const auto text = [&](std::string_view name) {
        return unicode ? utf16(name) : Bytes(name.begin(), name.end());
    };
    return message(flags, answers, text(domain), text(user));
}

std::size_t put_message(const Bytes& message, void* out, std::size_t room) noexcept {
    if (out == nullptr || message.empty() || message.size() > room) return 0;
    std::memcpy(out, message.data(), message.size());
    return message.size();
}

}  // namespace vantlow::login
