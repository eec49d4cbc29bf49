// Real servers for FTP and SFTP, as child processes on free ports.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "support/temp_folder.h"
#include "support/unix_server.h"

namespace vantlow::test {

/// A server with a folder that holds what it serves.
class ServerProcess {
  public:
    virtual ~ServerProcess() = default;
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return server_->port(); }
    [[nodiscard]] const TempFolder& documents() const noexcept { return documents_; }
    /// What it wrote to its standard streams.
    [[nodiscard]] std::string output() const { return server_->output(); }

  protected:
    ServerProcess() = default;

    TempFolder documents_;
    std::unique_ptr<UnixServer> server_;
};

/// A key and its own certificate for 127.0.0.1, in one file of the folder (server.pem; cert.pem is the
/// certificate alone); its Unix path.
std::string make_certificate(const TempFolder& folder);

/// vsftpd: anonymous logins, whose root is documents(). Needs root.
class Vsftpd : public ServerProcess {
  public:
    static constexpr const char* missing = "vsftpd is not installed or this is not root";
    static bool available();
    /// `lines`: further ones of its configuration.
    explicit Vsftpd(std::string_view lines = {}, bool ipv6 = false);
    [[nodiscard]] std::u16string url16(std::string_view path, std::string_view scheme = "ftp") const;

  private:
    bool ipv6_;
};

/// proftpd: the user "joe" with the password "secret", whose folder is documents().
class Proftpd : public ServerProcess {
  public:
    static constexpr const char* missing = "proftpd is not unpacked below build/";
    static bool available();
    explicit Proftpd(std::string_view lines = {});
    [[nodiscard]] std::u16string url16(std::string_view path, std::string_view scheme = "ftp",
                                       std::string_view password = "secret") const;
};

/// OpenSSH: the user that runs the tests, with the keys of key_folder() (id_ed25519, id_ecdsa, id_rsa).
class Sshd : public ServerProcess {
  public:
    static constexpr const char* missing = "OpenSSH's server is not installed";
    static bool available();
    explicit Sshd(std::string_view lines = {});
    /// The address of a file of documents().
    [[nodiscard]] std::u16string url16(std::string_view name) const;
    /// Holds the private keys; not the server's.
    [[nodiscard]] const TempFolder& key_folder() const noexcept { return keys_; }
    /// Gives the server another key and starts it again at the same port.
    void change_key();

  private:
    void run(std::string_view lines, std::uint16_t port = 0);

    TempFolder keys_;
    TempFolder host_key_;
};

}  // namespace vantlow::test
