// Certificates of an authority that lives as long as a test: right ones, and each wrong in its own way.
#pragma once

#include <string>
#include <string_view>

#include "support/temp_folder.h"
#include "support/unix_server.h"

namespace vantlow::test {

/// How a certificate is to be. The plain values make a right one for "localhost" and 127.0.0.1.
struct CertificateWishes {
    std::string names = "DNS:localhost,IP:127.0.0.1";
    std::string begin{};       ///< "20200101000000Z"; empty: now
    std::string end{};         ///< empty: in a month
    bool self_signed = false;  ///< by nobody else
    bool revoked = false;      ///< and an answer that says so is made
};

/// Made by the openssl program; throws std::runtime_error where that fails. Tests begin with:
/// if (!Certificates::available()) GTEST_SKIP() << Certificates::missing;
class Certificates {
  public:
    static constexpr const char* missing = "openssl is not installed on this system";
    static bool available();

    Certificates();
    /// Makes NAME.pem and NAME.key, and NAME.der with the revocation answer of one that is revoked.
    void make(const std::string& name, const CertificateWishes& wishes = {});
    [[nodiscard]] std::u16string authority() const { return folder_.path(u"ca.pem"); }
    /// Where a file of it stands, as programs like openssl and nginx name it.
    [[nodiscard]] std::string file(const std::string& name) const;
    [[nodiscard]] const TempFolder& folder() const noexcept { return folder_; }

  private:
    TempFolder folder_;
};

/// openssl's own server: answers every request for "/answer" with "hello".
class OpensslServer {
  public:
    /// `more`: further words of its command line.
    OpensslServer(const Certificates& certificates, const std::string& name, const std::string& more = {});
    OpensslServer(const OpensslServer&) = delete;
    OpensslServer& operator=(const OpensslServer&) = delete;

    static constexpr std::string_view body = "hello";
    /// A whole answer, its header included, to requests for "/NAME".
    void put(std::u16string_view name, std::string_view answer) const { documents_.write(name, answer); }
    [[nodiscard]] std::uint16_t port() const noexcept { return server_.port(); }
    [[nodiscard]] std::u16string url(std::u16string_view host = u"localhost") const;

  private:
    TempFolder documents_;
    UnixServer server_;
};

}  // namespace vantlow::test
