// The sentences of TLS for a person: one for each fault, the same on every system.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantlow::secur {

enum class CertificateFault {
    expired,            ///< detail: the day, "2024-05-31"
    not_yet_valid,      ///< detail: the day
    wrong_host,         ///< detail: the names that it is for
    self_signed,        ///< nobody else signed it, and it is not among the trusted ones
    unknown_authority,  ///< detail: who signed it
    revoked,            ///< detail: the day
    wrong_use,          ///< it is not meant for servers
    weak,               ///< its key or its signature is no protection
    other,              ///< detail: the system's words
};

/// Makes the sentence of a fault: "The certificate of HOST expired on 2024-05-31." `detail` may be empty.
std::string certificate_sentence(CertificateFault fault, std::string_view host, std::string_view detail);

/// Makes a text from a certificate or a server fit to be shown: without control characters, cut to a line.
std::string shown(std::string_view text);

/// The buffer that SSL_Set_ErrPtr named for sentences.
class ErrorText {
  public:
    void set(char* text, std::size_t room) noexcept {
        text_ = text;
        room_ = text == nullptr ? 0 : room;
    }
    void write(std::string_view sentence) noexcept;

  private:
    char* text_ = nullptr;
    std::size_t room_ = 0;
};

}  // namespace vantlow::secur
