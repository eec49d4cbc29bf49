// The logins: keys, the agent's keys, the password in its two forms.
#include <cstdlib>
#include <cstring>
#include <string>

#include "runtime/ssh/sftp/key_text.h"
#include "runtime/ssh/sftp/session.h"

namespace vantlow::ssh {
namespace {

// Servers end the connection after about six attempts, so some are left for the password.
constexpr int most_agent_keys = 3;

class Login {
  public:
    explicit Login(VantlowSsh& ssh) : ssh_(ssh), login_(*ssh.login) {}

    int run();

  private:
    using Attempt = bool (Login::*)();
    bool offers(const char* method) const { return methods_.find(method) != std::string::npos; }
    bool try_keys(std::size_t from, std::size_t to);
    bool asked_keys() { return try_keys(0, login_.first_keys); }
    bool other_keys() { return try_keys(login_.first_keys, login_.key_count); }
    bool agent();
    bool agent_keys(LIBSSH2_AGENT* agent);
    bool password();
    bool interactive();
    bool settled(long result);

    VantlowSsh& ssh_;
    const VantlowSshLogin& login_;
    std::string methods_;
    int waited_ = VANTLOW_SSH_OK;
    bool broken_ = false;
};

// Answers every question with the password, since servers hardly ever ask for anything else.
void answer_prompts(const char* /*name*/, int /*name_size*/, const char* /*instruction*/,
                    int /*instruction_size*/, int count, const LIBSSH2_USERAUTH_KBDINT_PROMPT* /*prompts*/,
                    LIBSSH2_USERAUTH_KBDINT_RESPONSE* responses, void** abstract) {
    const auto& ssh = *static_cast<VantlowSsh*>(*abstract);
    const char* const password = ssh.login->password;
    const std::size_t size = std::strlen(password);
    for (int i = 0; i < count; ++i) {
        // libssh2 frees it with the C library's free().
        responses[i].text = static_cast<char*>(std::malloc(size + 1));  // NOLINT
        if (responses[i].text == nullptr) continue;
        std::memcpy(responses[i].text, password, size + 1);
        responses[i].length = static_cast<unsigned>(size);
    }
}

// True when there is nothing more to try: the login succeeded, or the connection is gone.
bool Login::settled(long result) {
    const int number = libssh2_session_last_errno(ssh_.session);
    broken_ = broken_ || waited_ != VANTLOW_SSH_OK || result == LIBSSH2_ERROR_SOCKET_DISCONNECT ||
              result == LIBSSH2_ERROR_SOCKET_SEND || result == LIBSSH2_ERROR_SOCKET_RECV ||
              (result != 0 && number == LIBSSH2_ERROR_SOCKET_DISCONNECT);
    return result == 0 || broken_;
}

bool Login::try_keys(std::size_t from, std::size_t to) {
    if (!offers("publickey")) return false;
    for (std::size_t i = from; i < to; ++i) {
        const char* const key = login_.keys[i];
        const std::string half = public_key_of(key);
        const long result = ssh_.drive(waited_, [&] {
            return libssh2_userauth_publickey_frommemory(ssh_.session, login_.user, std::strlen(login_.user),
                                                         half.empty() ? nullptr : half.c_str(), half.size(),
                                                         key, std::strlen(key), login_.password);
        });
        if (settled(result)) return true;
    }
    return false;
}

bool Login::agent_keys(LIBSSH2_AGENT* agent) {
    if (libssh2_agent_connect(agent) != 0 || libssh2_agent_list_identities(agent) != 0) return false;
    struct libssh2_agent_publickey* identity = nullptr;
    for (int i = 0; i < most_agent_keys && libssh2_agent_get_identity(agent, &identity, identity) == 0; ++i) {
        const long result =
            ssh_.drive(waited_, [&] { return libssh2_agent_userauth(agent, login_.user, identity); });
        if (settled(result)) return true;
    }
    return false;
}

bool Login::agent() {
    if (login_.use_agent == 0 || !offers("publickey")) return false;
    LIBSSH2_AGENT* const agent = libssh2_agent_init(ssh_.session);
    if (agent == nullptr) return false;
    const bool done = agent_keys(agent);
    libssh2_agent_disconnect(agent);
    libssh2_agent_free(agent);
    return done;
}

bool Login::password() {
    if (login_.password == nullptr || !offers("password")) return false;
    return settled(ssh_.drive(waited_, [&] {
        return libssh2_userauth_password_ex(ssh_.session, login_.user,
                                            static_cast<unsigned>(std::strlen(login_.user)), login_.password,
                                            static_cast<unsigned>(std::strlen(login_.password)), nullptr);
    }));
}

bool Login::interactive() {
    if (login_.password == nullptr || !offers("keyboard-interactive")) return false;
    return settled(ssh_.drive(waited_, [&] {
        return libssh2_userauth_keyboard_interactive_ex(
            ssh_.session, login_.user, static_cast<unsigned>(std::strlen(login_.user)), &answer_prompts);
    }));
}

int Login::run() {
    const char* const list = ssh_.drive_pointer(waited_, [&] {
        return libssh2_userauth_list(ssh_.session, login_.user,
                                     static_cast<unsigned>(std::strlen(login_.user)));
    });
    if (waited_ != VANTLOW_SSH_OK) return waited_;
    if (list == nullptr && libssh2_userauth_authenticated(ssh_.session) != 0) return VANTLOW_SSH_OK;
    if (list == nullptr)
        return ssh_.fail_as_told(VANTLOW_SSH_BROKEN, "The server does not say how to log in");
    methods_ = list;
    // Keys that the person named come before keys that were merely found.
    for (const Attempt attempt :
         {&Login::asked_keys, &Login::password, &Login::interactive, &Login::agent, &Login::other_keys}) {
        if (!(this->*attempt)()) continue;
        if (waited_ != VANTLOW_SSH_OK) return waited_;
        if (!broken_) return VANTLOW_SSH_OK;
        return ssh_.fail_as_told(VANTLOW_SSH_REFUSED, "The server ended the login");
    }
    return ssh_.fail(VANTLOW_SSH_REFUSED, "The server refused every way to log in as " +
                                              std::string(login_.user) + " that was tried (it offers " +
                                              methods_ + ").");
}

}  // namespace

int log_in(VantlowSsh& ssh) {
    return Login(ssh).run();
}

}  // namespace vantlow::ssh
