// One SSH connection over the caller's transport.
#pragma once

#include <libssh2.h>
#include <libssh2_sftp.h>

#include <string>
#include <vector>

#include "runtime/operations.h"

/// The object behind the caller's handle. libssh2 works without waiting; the bytes that it waits for are
/// received here, in large pieces, and handed to it.
struct VantlowSsh {
    explicit VantlowSsh(const VantlowSshTransport& below) : transport(below) {}
    VantlowSsh(const VantlowSsh&) = delete;
    VantlowSsh& operator=(const VantlowSsh&) = delete;
    ~VantlowSsh();

    VantlowSshTransport transport;
    LIBSSH2_SESSION* session = nullptr;
    LIBSSH2_SFTP* sftp = nullptr;
    LIBSSH2_SFTP_HANDLE* file = nullptr;
    const VantlowSshLogin* login = nullptr;  ///< during Sftp_Connect
    std::vector<char> received;              ///< bytes for libssh2
    std::size_t taken = 0;
    std::size_t filled = 0;
    std::size_t receive_buffer;
    bool dead = false;  ///< the transport must not be used any more
    std::string folder;
    unsigned long long restart = 0;
    char* error = nullptr;
    std::size_t error_room = 0;

    /// Stores the failure's sentence for the caller; returns the code.
    int fail(int code, const std::string& text);
    /// The same with libssh2's own words behind `what`.
    int fail_as_told(int code, const char* what);
    /// Waits for bytes: VANTLOW_SSH_OK when some are there, else the transport's failure.
    int receive_more();
    /// Repeats an operation of libssh2 until it no longer asks to wait, and returns its result; `waited` says
    /// why waiting failed, where it did.
    template <class Operation>
    long drive(int& waited, Operation operation) {
        for (;;) {
            const long result = operation();
            if (result != LIBSSH2_ERROR_EAGAIN) return result;
            waited = receive_more();
            if (waited != VANTLOW_SSH_OK) return LIBSSH2_ERROR_EAGAIN;
        }
    }
    /// The same for operations that give a pointer.
    template <class Operation>
    auto drive_pointer(int& waited, Operation operation) {
        for (;;) {
            auto* const made = operation();
            if (made != nullptr || libssh2_session_last_errno(session) != LIBSSH2_ERROR_EAGAIN) return made;
            waited = receive_more();
            if (waited != VANTLOW_SSH_OK) return made;
        }
    }
};

namespace vantlow::ssh {

/// Checks the server's key against the known hosts, after the key exchange.
int check_server(VantlowSsh& ssh);
/// Before the key exchange: kinds of keys that are known for the server come first.
void prefer_known_keys(VantlowSsh& ssh);
/// Tries the logins in turn.
int log_in(VantlowSsh& ssh);
/// One command in the words of FTP.
int run_command(VantlowSsh& ssh, const std::string& command, std::string& reply);

}  // namespace vantlow::ssh
