#include "transfer/ftp/login.h"

#include <array>
#include <atomic>

namespace vantlow {
namespace {

class Login {
  public:
    Login(CBaseSocket& socket, FtpControl& control, const FtpPlan& plan, FtpSession& session, LogSink& log)
        : socket_(socket), control_(control), plan_(plan), session_(session), log_(log) {}

    Result run() {
        for (const auto step : {&Login::welcome, &Login::secure, &Login::user, &Login::protect,
                                &Login::features, &Login::folder}) {
            if (Result result = (this->*step)(); !result.ok()) return result;
        }
        return {};
    }

  private:
    Result welcome();
    Result secure();
    Result begin_tls();
    Result user();
    Result password(const FtpReply& after_user);
    Outcome<std::string> secret(const FtpReply& after_user);
    Result refused(const FtpReply& reply);
    /// A reply that says more than that it was not expected.
    Result not_expected(const FtpReply& reply, Result result) {
        static_cast<void>(unexpected_reply(log_, reply));
        return result;
    }
    Result protect();
    Result features();
    Result folder();

    Result ask(std::string_view command, FtpReply& reply, std::string_view shown = {}) {
        return control_.ask(command, reply, from_now(plan_.connect.timeout), shown);
    }

    CBaseSocket& socket_;
    FtpControl& control_;
    const FtpPlan& plan_;
    FtpSession& session_;
    LogSink& log_;
};

Result Login::welcome() {
    log_.line(Direction::note, "Socket connected, waiting for welcome message.");
    const auto until = from_now(plan_.connect.timeout);
    FtpReply reply;
    do {
        if (Result result = control_.read(reply, until); !result.ok()) return result;
    } while (reply.kind() == 1);  // "120 Service ready in nnn minutes"
    if (reply.is_success()) return {};
    // Whatever keeps a server from greeting may pass: its load, its number of users.
    return not_expected(reply, {Code::busy, "The server refuses the connection: " + reply.text()});
}

Result Login::secure() {
    if (!plan_.tls || socket_.is_secured()) return {};
    FtpReply reply;
    for (const char* command : {"AUTH TLS", "AUTH SSL"}) {
        if (Result result = ask(command, reply); !result.ok()) return result;
        if (reply.code == 234 || reply.code == 334) return begin_tls();
        if (reply.kind() == 4)
            return not_expected(reply, {Code::busy, "The server cannot begin TLS now: " + reply.text()});
    }
    return not_expected(reply, {Code::server_error, "The server does not offer TLS: " + reply.text()});
}

Result Login::begin_tls() {
    // Whatever was said in the clear behind the reply would count as said in secret.
    if (!control_.is_clean()) return {Code::server_error, "The server sent data before TLS began."};
    return socket_.start_tls(ftp_control_tls(*plan_.tls, session_));
}

Result Login::refused(const FtpReply& reply) {
    log_.line(Direction::error, "Login unsuccessfully.");
    if (reply.kind() == 4 || tells_of_limit(reply)) {
        return {Code::busy, "The server allows no more logins at the moment: " + reply.text()};
    }
    return {Code::credentials_refused, "The server refused the login: " + reply.text()};
}

Result Login::user() {
    FtpReply reply;
    if (Result result = ask("USER " + (plan_.user.empty() ? "anonymous" : plan_.user), reply); !result.ok())
        return result;
    if (reply.kind() == 3) return password(reply);
    if (!reply.is_success()) return refused(reply);
    log_.line(Direction::note, "Login successfully.");
    return {};
}

// The word behind "PASS ": the password, or the answer to a challenge, which the password never leaves.
Outcome<std::string> Login::secret(const FtpReply& after_user) {
    if (plan_.user.empty()) return std::string("IEUser@");
    if (!wants_otp(after_user)) return plan_.password;
    const auto challenge = parse_otp_challenge(after_user);
    if (!challenge) {
        return Result(Code::unsupported,
                      "The server wants a one-time password of an unknown kind: " + after_user.text());
    }
    if (plan_.one_time_password == nullptr) {
        return Result(Code::unsupported,
                      "The server wants a one-time password, and the library that makes it is "
                      "missing.");
    }
    std::array<char, VANTLOW_OPIE_ROOM> response{};
    if (plan_.one_time_password(challenge->algorithm.c_str(), challenge->sequence, challenge->seed.c_str(),
                                plan_.password.c_str(), response.data()) != 0) {
        return Result(Code::unsupported, "The one-time password could not be made.");
    }
    return std::string(response.data());
}

Result Login::password(const FtpReply& after_user) {
    const Outcome<std::string> answer = secret(after_user);
    if (!answer.ok()) {
        log_.line(Direction::error, answer.failure().message());
        return answer.failure();
    }
    FtpReply reply;
    if (Result result = ask("PASS " + *answer, reply, "PASS ********"); !result.ok()) return result;
    if (!reply.is_success()) return refused(reply);
    log_.line(Direction::note, "Login successfully.");
    return {};
}

Result Login::protect() {
    if (!plan_.tls) return {};
    FtpReply reply;
    if (Result result = ask("PBSZ 0", reply); !result.ok()) return result;
    if (Result result = ask("PROT P", reply); !result.ok()) return result;
    if (reply.is_success()) return {};
    return not_expected(
        reply, {Code::server_error, "The server does not protect data connections: " + reply.text()});
}

Result Login::features() {
    if (!plan_.ask_features) return {};
    FtpReply reply;
    if (Result result = ask("FEAT", reply); !result.ok()) return result;
    session_.features = parse_features(reply);
    if (!session_.features.listed) return {};
    const bool on = session_.features.utf8 && plan_.utf8;
    if (on) {
        const std::string client = "CLNT " + plan_.client_name + " " + plan_.client_version;
        if (Result result = ask(client, reply); !result.ok()) return result;
    }
    // The answer changes nothing: a server that refuses has one encoding only.
    return ask(on ? "OPTS UTF8 ON" : "OPTS UTF8 OFF", reply);
}

Result Login::folder() {
    if (plan_.path.folder.empty()) return {};
    FtpReply reply;
    if (Result result = ask("CWD " + plan_.path.folder, reply); !result.ok()) return result;
    if (reply.kind() == 5 && !plan_.path.folder.starts_with('/')) {
        // Many addresses are written from the root although the login leads elsewhere.
        FtpReply from_root;
        if (Result result = ask("CWD /" + plan_.path.folder, from_root); !result.ok()) return result;
        if (from_root.is_success()) return {};
    }
    if (reply.is_success()) return {};
    if (reply.code == 550) {
        return not_expected(reply, {Code::server_error, "The folder cannot be opened: " + reply.text()});
    }
    return unexpected_reply(log_, reply);
}

}  // namespace

// A server may insist that data connections resume the session of their own control connection.
TlsPlan ftp_control_tls(const TlsPlan& trust, FtpSession& session) {
    static std::atomic<std::uint64_t> sessions{0};
    session.tls_session = "ftp " + std::to_string(++sessions);
    TlsPlan tls = trust;
    tls.session_key = session.tls_session;
    return tls;
}

Result ftp_log_in(CBaseSocket& socket, FtpControl& control, const FtpPlan& plan, FtpSession& session,
                  LogSink& log) {
    return Login(socket, control, plan, session, log).run();
}

}  // namespace vantlow
