// Base64: as fingerprints are written, without padding, and as keys are.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantlow::ssh {

inline constexpr std::string_view base64_digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline std::string base64_unpadded(const unsigned char* bytes, std::size_t size) {
    std::string text;
    unsigned held = 0;
    int bits = 0;
    for (std::size_t i = 0; i < size; ++i) {
        held = (held << 8U) | bytes[i];
        for (bits += 8; bits >= 6; bits -= 6)
            text += base64_digits[(held >> static_cast<unsigned>(bits - 6)) & 63U];
    }
    if (bits > 0) text += base64_digits[(held << static_cast<unsigned>(6 - bits)) & 63U];
    return text;
}

/// With padding, which libssh2 needs where it decodes: 1.11 makes too little room for a text without.
inline std::string base64_padded(const unsigned char* bytes, std::size_t size) {
    std::string text = base64_unpadded(bytes, size);
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

/// The bytes of a base64 text; anything that is no digit is passed over.
inline std::string base64_decoded(std::string_view text) {
    std::string bytes;
    unsigned held = 0;
    int bits = 0;
    for (const char c : text) {
        const auto digit = base64_digits.find(c);
        if (digit == std::string_view::npos) continue;
        held = (held << 6U) | static_cast<unsigned>(digit);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes += static_cast<char>((held >> static_cast<unsigned>(bits)) & 0xFFU);
    }
    return bytes;
}

}  // namespace vantlow::ssh
