#include "runtime/ssh/sftp/session.h"

#ifndef _WIN32
#include <poll.h>
#include <sys/socket.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>

namespace {

constexpr std::size_t standard_buffer = 256 * 1024;
constexpr std::size_t smallest_buffer = 32 * 1024;
constexpr std::size_t largest_buffer = 4 * 1024 * 1024;
constexpr int most_tries_to_free = 8;
// libssh2 wants a socket although it never uses one here; this number is none.
constexpr libssh2_socket_t no_socket = static_cast<libssh2_socket_t>(0x7FFFFFFE);

// An agent may ask its user first; a user who is away must not hold up the connection for ever.
constexpr int longest_agent_ms = 15000;

#ifdef _WIN32
// The agents of Windows are not reached over sockets.
bool wait_for_agent(libssh2_socket_t /*socket*/) {
    return false;
}
#else
bool wait_for_agent(libssh2_socket_t socket) {
    pollfd entry{socket, POLLIN, 0};
    return ::poll(&entry, 1, longest_agent_ms) == 1;
}
#endif

VantlowSsh& owner(void** abstract) {
    return *static_cast<VantlowSsh*>(*abstract);
}

#ifdef _WIN32
int socket_size(std::size_t size) {
    return static_cast<int>(size);
}
#else
std::size_t socket_size(std::size_t size) {
    return size;
}
#endif

// libssh2 talks to the key agent through the same two operations, over a socket of its own.
ssize_t agent_bytes(ssize_t result) {
    return result >= 0 ? result : -ECONNRESET;
}

ssize_t take_received(libssh2_socket_t socket, void* into, std::size_t size, int flags, void** abstract) {
    if (socket != no_socket) {
        return wait_for_agent(socket)
                   ? agent_bytes(::recv(socket, static_cast<char*>(into), socket_size(size), flags))
                   : -ETIMEDOUT;
    }
    VantlowSsh& ssh = owner(abstract);
    if (ssh.dead) return -ECONNRESET;
    if (ssh.taken == ssh.filled) return -EAGAIN;
    const std::size_t bytes = std::min(size, ssh.filled - ssh.taken);
    std::memcpy(into, ssh.received.data() + ssh.taken, bytes);
    ssh.taken += bytes;
    return static_cast<ssize_t>(bytes);
}

ssize_t send_all(libssh2_socket_t socket, const void* from, std::size_t size, int flags, void** abstract) {
    if (socket != no_socket)
        return agent_bytes(::send(socket, static_cast<const char*>(from), socket_size(size), flags));
    VantlowSsh& ssh = owner(abstract);
    if (ssh.dead || ssh.transport.send(ssh.transport.context, from, size) != VANTLOW_SSH_OK)
        return -ECONNRESET;
    return static_cast<ssize_t>(size);
}

bool start_library() {
    static std::once_flag once;
    static bool started = false;
    std::call_once(once, [] { started = libssh2_init(0) == 0; });
    return started;
}

template <class Function>
void set_callback(VantlowSsh& ssh, int which, Function* function) {
#if LIBSSH2_VERSION_NUM >= 0x010b01
    libssh2_session_callback_set2(ssh.session, which, reinterpret_cast<libssh2_cb_generic*>(function));
#else
    libssh2_session_callback_set(ssh.session, which, reinterpret_cast<void*>(function));
#endif
}

bool make_session(VantlowSsh& ssh) {
    ssh.session = libssh2_session_init_ex(nullptr, nullptr, nullptr, &ssh);
    if (ssh.session == nullptr) return false;
    set_callback(ssh, LIBSSH2_CALLBACK_RECV, &take_received);
    set_callback(ssh, LIBSSH2_CALLBACK_SEND, &send_all);
    libssh2_session_set_blocking(ssh.session, 0);
    // The ciphers that processors have instructions for come first.
    for (const int direction : {LIBSSH2_METHOD_CRYPT_CS, LIBSSH2_METHOD_CRYPT_SC}) {
        libssh2_session_method_pref(ssh.session, direction, "aes128-ctr,aes192-ctr,aes256-ctr");
    }
    return true;
}

int connect(VantlowSsh& ssh) {
    int waited = VANTLOW_SSH_OK;
    vantlow::ssh::prefer_known_keys(ssh);
    const long shaken = ssh.drive(waited, [&] { return libssh2_session_handshake(ssh.session, no_socket); });
    if (waited != VANTLOW_SSH_OK) return waited;
    if (shaken != 0) {
        const bool cannot_agree = shaken == LIBSSH2_ERROR_KEX_FAILURE || shaken == LIBSSH2_ERROR_PROTO ||
                                  shaken == LIBSSH2_ERROR_METHOD_NONE;
        return ssh.fail_as_told(cannot_agree ? VANTLOW_SSH_NO_FILES : VANTLOW_SSH_BROKEN,
                                "The SSH connection could not be made");
    }
    if (const int code = vantlow::ssh::check_server(ssh); code != VANTLOW_SSH_OK) return code;
    if (const int code = vantlow::ssh::log_in(ssh); code != VANTLOW_SSH_OK) return code;
    ssh.sftp = ssh.drive_pointer(waited, [&] { return libssh2_sftp_init(ssh.session); });
    if (waited != VANTLOW_SSH_OK) return waited;
    if (ssh.sftp == nullptr) return ssh.fail_as_told(VANTLOW_SSH_NO_FILES, "The server does not offer SFTP");
    return VANTLOW_SSH_OK;
}

}  // namespace

VantlowSsh::~VantlowSsh() {
    dead = true;  // from here on nothing is sent
    if (session == nullptr) return;
    const auto insist = [](auto step) {
        for (int i = 0; i < most_tries_to_free && step() == LIBSSH2_ERROR_EAGAIN; ++i) {
        }
    };
    // Closing the handle also discards the bytes that an interrupted transfer left behind.
    if (file != nullptr) insist([this] { return libssh2_sftp_close_handle(file); });
    if (sftp != nullptr) insist([this] { return libssh2_sftp_shutdown(sftp); });
    insist([this] { return libssh2_session_free(session); });
}

int VantlowSsh::fail(int code, const std::string& text) {
    if (error != nullptr && error_room > 0) {
        const std::size_t bytes = std::min(text.size(), error_room - 1);
        std::memcpy(error, text.data(), bytes);
        error[bytes] = '\0';
    }
    return code;
}

int VantlowSsh::fail_as_told(int code, const char* what) {
    char* words = nullptr;
    const int number = libssh2_session_last_error(session, &words, nullptr, 0);
    const bool cut = number == LIBSSH2_ERROR_SOCKET_DISCONNECT || number == LIBSSH2_ERROR_SOCKET_RECV ||
                     number == LIBSSH2_ERROR_SOCKET_SEND || number == LIBSSH2_ERROR_CHANNEL_CLOSED ||
                     number == LIBSSH2_ERROR_CHANNEL_EOF_SENT;
    return fail(cut ? VANTLOW_SSH_BROKEN : code,
                std::string(what) + ": " + (words != nullptr && *words != '\0' ? words : "no reason given"));
}

int VantlowSsh::receive_more() {
    if (dead) return VANTLOW_SSH_TRANSPORT;
    if (received.size() != receive_buffer) received.resize(receive_buffer);
    const ptrdiff_t bytes = transport.receive(transport.context, received.data(), received.size());
    if (bytes == 0) return fail(VANTLOW_SSH_BROKEN, "The server closed the connection.");
    if (bytes < 0) return static_cast<int>(bytes);
    taken = 0;
    filled = static_cast<std::size_t>(bytes);
    return VANTLOW_SSH_OK;
}

extern "C" {

VANTLOW_EXPORT SSH_Init_t SSH_Init;
VANTLOW_EXPORT SSH_Exit_t SSH_Exit;
VANTLOW_EXPORT SSH_Settings_t SSH_Settings;
VANTLOW_EXPORT SSH_SetErrPtr_t SSH_SetErrPtr;
VANTLOW_EXPORT Sftp_Connect_t Sftp_Connect;
VANTLOW_EXPORT SSH_Send_t SSH_Send;
VANTLOW_EXPORT SSH_Recv_t SSH_Recv;
VANTLOW_EXPORT SSH_Disconnect_t SSH_Disconnect;

VantlowSsh* SSH_Init(const VantlowSshTransport* transport) try {
    if (transport == nullptr || !start_library()) return nullptr;
    auto* const ssh = new VantlowSsh(*transport);
    ssh->receive_buffer = standard_buffer;
    if (make_session(*ssh)) return ssh;
    delete ssh;
    return nullptr;
} catch (...) {
    return nullptr;
}

void SSH_Exit(VantlowSsh* ssh) {
    delete ssh;
}

void SSH_Settings(VantlowSsh* ssh, std::size_t receive_buffer) {
    ssh->receive_buffer = std::clamp(receive_buffer, smallest_buffer, largest_buffer);
}

void SSH_SetErrPtr(VantlowSsh* ssh, char* text, std::size_t room) {
    ssh->error = text;
    ssh->error_room = room;
}

int Sftp_Connect(VantlowSsh* ssh, const VantlowSshLogin* login) try {
    ssh->login = login;
    const int code = connect(*ssh);
    ssh->login = nullptr;
    return code;
} catch (...) {
    ssh->login = nullptr;
    return VANTLOW_SSH_BROKEN;
}

int SSH_Send(VantlowSsh* ssh, const char* command, char* reply, std::size_t room) try {
    std::string text;
    const int code = vantlow::ssh::run_command(*ssh, command, text);
    if (room > 0) {
        const std::size_t bytes = std::min(text.size(), room - 1);
        std::memcpy(reply, text.data(), bytes);
        reply[bytes] = '\0';
    }
    return code;
} catch (...) {
    return VANTLOW_SSH_BROKEN;
}

ptrdiff_t SSH_Recv(VantlowSsh* ssh, void* into, std::size_t size) try {
    if (ssh->file == nullptr) return 0;
    int waited = VANTLOW_SSH_OK;
    const long bytes = ssh->drive(waited, [&] {
        return static_cast<long>(libssh2_sftp_read(ssh->file, static_cast<char*>(into), size));
    });
    if (waited != VANTLOW_SSH_OK) return waited;
    if (bytes >= 0) return bytes;
    return ssh->fail_as_told(VANTLOW_SSH_BROKEN, "The rest of the file could not be read");
} catch (...) {
    return VANTLOW_SSH_BROKEN;
}

void SSH_Disconnect(VantlowSsh* ssh) {
    if (ssh->dead) return;
    libssh2_session_disconnect(ssh->session, "done");
    ssh->dead = true;
}

}  // extern "C"
