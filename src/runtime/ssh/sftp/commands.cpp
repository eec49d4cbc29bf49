// SFTP behind FTP's commands and replies.
#include <array>
#include <cstdio>
#include <ctime>
#include <string>

#include "runtime/ssh/sftp/session.h"

namespace vantlow::ssh {
namespace {

struct Answer {
    int code = VANTLOW_SSH_OK;  ///< whether there is an answer at all
    std::string reply;
};

std::string full_path(const VantlowSsh& ssh, const std::string& name) {
    if (ssh.folder.empty() || name.starts_with("/")) return name;
    return ssh.folder.back() == '/' ? ssh.folder + name : ssh.folder + "/" + name;
}

// The server's refusal as an FTP reply.
std::string refusal(const VantlowSsh& ssh) {
    switch (libssh2_sftp_last_error(ssh.sftp)) {
        case LIBSSH2_FX_NO_SUCH_FILE:
        case LIBSSH2_FX_NO_SUCH_PATH:
            return "550 No such file.";
        case LIBSSH2_FX_PERMISSION_DENIED:
            return "550 Permission denied.";
        case LIBSSH2_FX_NO_CONNECTION:
        case LIBSSH2_FX_CONNECTION_LOST:
            return "450 The server has lost a connection.";
        default:
            return "550 The server refuses (SFTP status " +
                   std::to_string(libssh2_sftp_last_error(ssh.sftp)) + ").";
    }
}

// The answer for a failed operation: the server's refusal, or that the connection is of no more use.
Answer failed(VantlowSsh& ssh, int waited, const char* what) {
    if (waited != VANTLOW_SSH_OK) return {waited, {}};
    if (libssh2_session_last_errno(ssh.session) == LIBSSH2_ERROR_SFTP_PROTOCOL)
        return {VANTLOW_SSH_OK, refusal(ssh)};
    return {ssh.fail_as_told(VANTLOW_SSH_BROKEN, what), {}};
}

Answer attributes(VantlowSsh& ssh, const std::string& path, LIBSSH2_SFTP_ATTRIBUTES& found) {
    int waited = VANTLOW_SSH_OK;
    const long result = ssh.drive(waited, [&] {
        return libssh2_sftp_stat_ex(ssh.sftp, path.c_str(), static_cast<unsigned>(path.size()),
                                    LIBSSH2_SFTP_STAT, &found);
    });
    return result == 0 ? Answer{} : failed(ssh, waited, "The file could not be looked up");
}

bool is_folder(const LIBSSH2_SFTP_ATTRIBUTES& found) {
    return (found.flags & LIBSSH2_SFTP_ATTR_PERMISSIONS) != 0 && LIBSSH2_SFTP_S_ISDIR(found.permissions);
}

Answer change_folder(VantlowSsh& ssh, const std::string& path) {
    std::string to = full_path(ssh, path);
    // "~" is the folder that the login leads to, in which relative paths begin.
    if (path == "~" || path == "~/") {
        to = ".";
    } else if (path.starts_with("~/")) {
        to = path.substr(2);
    }
    LIBSSH2_SFTP_ATTRIBUTES found{};
    Answer answer = attributes(ssh, to, found);
    if (answer.code != VANTLOW_SSH_OK || !answer.reply.empty()) return answer;
    if (!is_folder(found)) return {VANTLOW_SSH_OK, "550 Not a folder."};
    ssh.folder = to;
    return {VANTLOW_SSH_OK, "250 The folder is now " + to};
}

Answer tell_size(VantlowSsh& ssh, const std::string& name) {
    LIBSSH2_SFTP_ATTRIBUTES found{};
    Answer answer = attributes(ssh, full_path(ssh, name), found);
    if (answer.code != VANTLOW_SSH_OK || !answer.reply.empty()) return answer;
    if (is_folder(found)) return {VANTLOW_SSH_OK, "550 Not a file."};
    if ((found.flags & LIBSSH2_SFTP_ATTR_SIZE) == 0)
        return {VANTLOW_SSH_OK, "550 The server does not report the size."};
    return {VANTLOW_SSH_OK, "213 " + std::to_string(found.filesize)};
}

Answer tell_time(VantlowSsh& ssh, const std::string& name) {
    LIBSSH2_SFTP_ATTRIBUTES found{};
    Answer answer = attributes(ssh, full_path(ssh, name), found);
    if (answer.code != VANTLOW_SSH_OK || !answer.reply.empty()) return answer;
    if ((found.flags & LIBSSH2_SFTP_ATTR_ACMODTIME) == 0)
        return {VANTLOW_SSH_OK, "550 The server does not report the time."};
    const auto time = static_cast<std::time_t>(found.mtime);
    std::tm parts{};
#ifdef _WIN32
    gmtime_s(&parts, &time);
#else
    gmtime_r(&time, &parts);
#endif
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "213 %Y%m%d%H%M%S", &parts);
    return {VANTLOW_SSH_OK, text.data()};
}

Answer close_file(VantlowSsh& ssh) {
    if (ssh.file == nullptr) return {};
    int waited = VANTLOW_SSH_OK;
    const long result = ssh.drive(waited, [&] { return libssh2_sftp_close_handle(ssh.file); });
    if (waited != VANTLOW_SSH_OK) return {waited, {}};
    ssh.file = nullptr;
    if (result == 0 || libssh2_session_last_errno(ssh.session) == LIBSSH2_ERROR_SFTP_PROTOCOL) return {};
    return failed(ssh, waited, "The file could not be closed");
}

Answer retrieve(VantlowSsh& ssh, const std::string& name) {
    if (Answer closed = close_file(ssh); closed.code != VANTLOW_SSH_OK) return closed;
    const unsigned long long offset = ssh.restart;
    ssh.restart = 0;
    const std::string path = full_path(ssh, name);
    int waited = VANTLOW_SSH_OK;
    ssh.file = ssh.drive_pointer(waited, [&] {
        return libssh2_sftp_open_ex(ssh.sftp, path.c_str(), static_cast<unsigned>(path.size()),
                                    LIBSSH2_FXF_READ, 0, LIBSSH2_SFTP_OPENFILE);
    });
    if (ssh.file == nullptr) return failed(ssh, waited, "The file could not be opened");
    libssh2_sftp_seek64(ssh.file, offset);
    return {VANTLOW_SSH_OK, "125 transfer starting. (Restarting at " + std::to_string(offset) + ")"};
}

Answer restart_at(VantlowSsh& ssh, const std::string& offset) {
    if (offset.empty() || offset.size() > 19 || offset.find_first_not_of("0123456789") != std::string::npos)
        return {VANTLOW_SSH_OK, "501 Not an offset."};
    ssh.restart = std::stoull(offset);
    return {VANTLOW_SSH_OK, "350 Restarting at " + offset + "."};
}

Answer answer_to(VantlowSsh& ssh, const std::string& word, const std::string& argument) {
    if (word == "CWD") return change_folder(ssh, argument);
    if (word == "SIZE") return tell_size(ssh, argument);
    if (word == "MDTM") return tell_time(ssh, argument);
    if (word == "REST") return restart_at(ssh, argument);
    if (word == "RETR") return retrieve(ssh, argument);
    if (word == "TYPE" || word == "NOOP") return {VANTLOW_SSH_OK, "200 OK."};
    if (word == "ABOR") {
        Answer closed = close_file(ssh);
        if (closed.code == VANTLOW_SSH_OK) closed.reply = "226 The transfer has ended.";
        return closed;
    }
    return {VANTLOW_SSH_OK, "502 Command not implemented."};
}

}  // namespace

int run_command(VantlowSsh& ssh, const std::string& command, std::string& reply) {
    if (ssh.sftp == nullptr) return ssh.fail(VANTLOW_SSH_BROKEN, "There is no connection.");
    const auto blank = command.find(' ');
    const std::string argument = blank == std::string::npos ? std::string() : command.substr(blank + 1);
    Answer answer = answer_to(ssh, command.substr(0, blank), argument);
    reply = answer.reply;
    return answer.code;
}

}  // namespace vantlow::ssh
