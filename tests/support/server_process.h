// Real servers for FTP and SFTP, as child processes on free ports.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "support/process_run.h"
#include "support/temp_folder.h"

namespace vantlow::test {

/// A server with a folder for its configuration and one with what it serves. Ended by its id with the object.
class ServerProcess {
  public:
    virtual ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    [[nodiscard]] const TempFolder& documents() const noexcept { return documents_; }
    /// What it wrote to its standard streams.
    [[nodiscard]] std::string output() const { return program_ ? program_->out() + program_->err() : ""; }

  protected:
    ServerProcess() = default;
    /// Starts the program until it accepts connections, with another free port where one was taken meanwhile.
    /// `arguments` are made anew for each port. Throws std::runtime_error when it does not start.
    void start(const std::u16string& program, const std::string& host,
               const std::function<std::vector<std::u16string>()>& arguments, const RunOptions& options = {});

    TempFolder prefix_;
    TempFolder documents_;
    std::uint16_t port_ = 0;
    std::unique_ptr<RunningProgram> program_;
};

/// A key and its own certificate for 127.0.0.1, in one file of the folder; its path.
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
    void make_key(const TempFolder& folder, const char16_t* name, const char16_t* kind);
    void run(std::string_view lines);

    TempFolder keys_;
};

}  // namespace vantlow::test
