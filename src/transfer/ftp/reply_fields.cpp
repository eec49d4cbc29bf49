#include "transfer/ftp/reply_fields.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr auto none = std::string_view::npos;

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

std::size_t digits_from(std::string_view text, std::size_t at) noexcept {
    std::size_t end = at;
    while (end < text.size() && is_digit(text[end])) ++end;
    return end - at;
}

// The text behind the code in the last line.
std::string_view tail(const FtpReply& reply) {
    if (reply.lines.empty()) return {};
    const std::string_view line = reply.lines.back();
    return line.size() > 4 ? line.substr(4) : std::string_view{};
}

// Reads six numbers with commas between them, from this place on.
std::optional<std::array<std::uint8_t, 6>> six_numbers(std::string_view text) {
    std::array<std::uint8_t, 6> numbers{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i > 0) {
            if (at >= text.size() || text[at] != ',') return std::nullopt;
            ++at;
            while (at < text.size() && text[at] == ' ') ++at;
        }
        const std::size_t digits = digits_from(text, at);
        const auto number = parse_decimal(text.substr(at, digits));
        if (digits > 3 || !number || *number > 255) return std::nullopt;
        numbers[i] = static_cast<std::uint8_t>(*number);
        at += digits;
    }
    return numbers;
}

bool names(std::string_view line, std::string_view feature) noexcept {
    return istarts_with(line, feature) &&
           (line.size() == feature.size() || line[feature.size()] == ' ' || line[feature.size()] == ';');
}

}  // namespace

std::optional<FtpPassive> parse_pasv(const FtpReply& reply) {
    const std::string_view text = tail(reply);
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!is_digit(text[at]) || (at > 0 && is_digit(text[at - 1]))) continue;
        const auto n = six_numbers(text.substr(at));
        if (!n) continue;
        const auto port = static_cast<std::uint16_t>((*n)[4] * 256 + (*n)[5]);
        if (port == 0) return std::nullopt;
        return FtpPassive{{(*n)[0], (*n)[1], (*n)[2], (*n)[3]}, port};
    }
    return std::nullopt;
}

std::optional<std::uint16_t> parse_epsv(const FtpReply& reply) {
    const std::string_view text = tail(reply);
    const auto open = text.rfind('(');
    if (open == none || open + 4 >= text.size()) return std::nullopt;
    const char mark = text[open + 1];
    if (is_digit(mark) || text[open + 2] != mark || text[open + 3] != mark) return std::nullopt;
    const std::size_t digits = digits_from(text, open + 4);
    const auto port = parse_decimal(text.substr(open + 4, digits));
    const std::size_t end = open + 4 + digits;
    if (!port || *port < 1 || *port > 65535 || end >= text.size() || text[end] != mark) return std::nullopt;
    return static_cast<std::uint16_t>(*port);
}

bool is_public_address(const std::array<std::uint8_t, 4>& a) noexcept {
    const bool is_private = a[0] == 10 || (a[0] == 172 && a[1] >= 16 && a[1] < 32) ||
                            (a[0] == 192 && a[1] == 168) || (a[0] == 169 && a[1] == 254) ||
                            (a[0] == 100 && a[1] >= 64 && a[1] < 128);
    return !is_private && a[0] != 0 && a[0] != 127 && a[0] < 224;
}

bool may_lead_to(const std::array<std::uint8_t, 4>& told, const std::array<std::uint8_t, 4>& server,
                 bool anywhere) noexcept {
    if (!is_public_address(told) || !is_public_address(server)) return false;
    return anywhere || std::equal(told.begin(), told.end() - 1, server.begin());
}

std::optional<std::int64_t> parse_size(const FtpReply& reply) {
    const std::string_view text = trim(tail(reply));
    return reply.code == 213 ? parse_decimal(text.substr(0, digits_from(text, 0))) : std::nullopt;
}

std::string parse_mdtm(const FtpReply& reply) {
    if (reply.code != 213) return {};
    std::string_view text = trim(tail(reply));
    text = text.substr(0, digits_from(text, 0));
    std::string digits(text);
    if (digits.size() == 15 && digits.starts_with("191")) {
        digits = std::to_string(1900 + *parse_decimal(text.substr(2, 3))) + digits.substr(5);
    }
    return digits.size() == 14 ? digits : std::string();
}

std::optional<std::int64_t> parse_announced_size(const FtpReply& reply) {
    const std::string_view text = tail(reply);
    const auto unit = text.rfind(" bytes");
    const auto open = text.rfind('(', unit);
    if (unit == none || open == none) return std::nullopt;
    return parse_decimal(text.substr(open + 1, unit - open - 1));
}

FtpFeatures parse_features(const FtpReply& reply) {
    FtpFeatures features;
    if (reply.code != 211 || reply.lines.size() < 3) return features;
    features.listed = true;
    for (std::size_t i = 1; i + 1 < reply.lines.size(); ++i) {
        std::string_view line = trim(reply.lines[i]);
        if (line.starts_with("211-")) line = trim(line.substr(4));  // some repeat the code
        features.mode_z = features.mode_z || names(line, "MODE Z");
        features.utf8 = features.utf8 || names(line, "UTF8");
        features.rest_stream = features.rest_stream || names(line, "REST STREAM");
        features.mdtm = features.mdtm || names(line, "MDTM");
        features.size = features.size || names(line, "SIZE");
    }
    return features;
}

bool wants_otp(const FtpReply& reply) noexcept {
    return std::any_of(reply.lines.begin(), reply.lines.end(),
                       [](const std::string& line) { return line.find("otp-") != std::string::npos; });
}

std::optional<OtpChallenge> parse_otp_challenge(const FtpReply& reply) {
    for (const std::string& line : reply.lines) {
        const auto at = line.find("otp-");
        if (at == std::string::npos) continue;
        std::vector<std::string_view> words;
        for (const std::string_view word : split(std::string_view(line).substr(at), ' ')) {
            if (!word.empty()) words.push_back(word);
        }
        if (words.size() < 3) continue;
        OtpChallenge challenge;
        challenge.algorithm = ascii_lower(words[0]);
        const auto sequence = parse_decimal(words[1]);
        const auto is_seed_character = [](char c) { return is_digit(c) || (c >= 'a' && c <= 'z'); };
        challenge.seed = ascii_lower(words[2]);
        const auto seed_end =
            std::find_if_not(challenge.seed.begin(), challenge.seed.end(), is_seed_character);
        challenge.seed.erase(seed_end, challenge.seed.end());  // a comma or a bracket behind it
        const bool known = challenge.algorithm == "otp-md4" || challenge.algorithm == "otp-md5" ||
                           challenge.algorithm == "otp-sha1";
        if (!known || !sequence || *sequence > 9999 || challenge.seed.empty() || challenge.seed.size() > 16)
            continue;
        challenge.sequence = static_cast<int>(*sequence);
        return challenge;
    }
    return std::nullopt;
}

bool tells_of_limit(const FtpReply& reply) noexcept {
    constexpr std::array<std::string_view, 8> signs{"too many",  "maximum",    "limit",     "try again",
                                                    "max users", "many users", "many conn", "already logged"};
    return std::any_of(reply.lines.begin(), reply.lines.end(), [&](const std::string& line) {
        const std::string lower = ascii_lower(std::string_view(line));
        return std::any_of(signs.begin(), signs.end(),
                           [&](std::string_view sign) { return lower.find(sign) != std::string::npos; });
    });
}

}  // namespace vantlow
