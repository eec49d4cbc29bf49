// Base64 as fingerprints are written: without padding.
#pragma once

#include <cstddef>
#include <string>

namespace vantlow::ssh {

inline std::string base64_unpadded(const unsigned char* bytes, std::size_t size) {
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    unsigned held = 0;
    int bits = 0;
    for (std::size_t i = 0; i < size; ++i) {
        held = (held << 8U) | bytes[i];
        for (bits += 8; bits >= 6; bits -= 6) text += digits[(held >> static_cast<unsigned>(bits - 6)) & 63U];
    }
    if (bits > 0) text += digits[(held << static_cast<unsigned>(6 - bits)) & 63U];
    return text;
}

}  // namespace vantlow::ssh
