#include "runtime/secur/tls_words.h"

namespace vantlow::secur {
namespace {

constexpr std::size_t longest_shown = 200;

std::string with(std::string_view before, std::string_view detail, std::string_view after) {
    if (detail.empty()) return {};
    return std::string(before) + std::string(detail) + std::string(after);
}

}  // namespace

std::string shown(std::string_view text) {
    std::string line(text.substr(0, longest_shown));
    // The cut must not fall in the middle of a UTF-8 sequence.
    while (line.size() < text.size() && !line.empty() &&
           (static_cast<unsigned char>(text[line.size()]) & 0xC0U) == 0x80U)
        line.pop_back();
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    }
    return line;
}

std::string certificate_sentence(CertificateFault fault, std::string_view host, std::string_view detail) {
    const std::string name = shown(host);
    const std::string more = shown(detail);
    const std::string whose = "The certificate of " + name;
    switch (fault) {
        case CertificateFault::expired:
            return whose + " expired" + with(" on ", more, "") + ".";
        case CertificateFault::not_yet_valid:
            return whose + " is not valid yet" + with(": it begins on ", more, "") + ".";
        case CertificateFault::wrong_host:
            return whose + " is for another host" + with(" (", more, ")") + ", not for " + name + ".";
        case CertificateFault::self_signed:
            return whose + " is self-signed and not trusted.";
        case CertificateFault::unknown_authority:
            return whose + " was issued by an authority that is not trusted" + with(" (", more, ")") + ".";
        case CertificateFault::revoked:
            return whose + " was revoked" + with(" on ", more, "") + ".";
        case CertificateFault::wrong_use:
            return whose + " is not meant for servers.";
        case CertificateFault::weak:
            return whose + " is too weak to be trusted" + with(" (", more, ")") + ".";
        case CertificateFault::other:
            break;
    }
    return whose + " is not trusted" + with(": ", more, "") + ".";
}

void ErrorText::write(std::string_view sentence) noexcept {
    if (room_ == 0) return;
    text_[sentence.copy(text_, room_ - 1)] = '\0';
}

}  // namespace vantlow::secur
