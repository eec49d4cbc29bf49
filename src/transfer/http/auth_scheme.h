// Which of the schemes that a server or a proxy offers is taken, and what is sent for it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "base/mutex.h"
#include "runtime/tables.h"
#include "transfer/connection/keepsakes.h"
#include "transfer/connection/tunnel.h"
#include "transfer/http/auth_digest.h"
#include "transfer/http/field_value.h"

namespace vantlow {

/// The operations that compute the answers; entries may be missing.
struct LoginOperations {
    DigestOperations digest;
    NTLM1_ChallengeResponse_t* ntlm = nullptr;
    NTLM_Challenge_t* challenge = nullptr;
    NTLM_Response_t* response = nullptr;
    NTLM_Destroy_t* destroy = nullptr;

    static LoginOperations of(const LibraryTables& libraries);
};

enum class LoginScheme { none, basic, digest, negotiate, ntlm };

/// The logins that worked before at servers and proxies, so that further connections need not find out. Any
/// thread.
class LoginMemory : public Keepsake {
  public:
    struct Known {
        LoginScheme scheme = LoginScheme::none;
        std::string challenge;  ///< of Digest
    };
    [[nodiscard]] Known find(const std::string& who) const;
    void remember(const std::string& who, Known known);
    void forget(const std::string& who);

  private:
    mutable Mutex mutex_;
    std::map<std::string, Known> known_ VANTLOW_GUARDED_BY(mutex_);
};

/// Who logs in where.
struct LoginIdentity {
    std::string place;  ///< "http://host:port" or "proxy host:port"
    std::string user;   ///< in the ANSI code page; empty: nobody, every challenge is final
    std::string password;

    /// A text that tells identities apart and holds no secret; empty for nobody.
    [[nodiscard]] std::string key() const;
};

/// A login by whatever the other side offers: NTLM (also inside "negotiate") before Digest before Basic,
/// since that is what servers with accounts of a domain can check. Basic is sent unasked. Wrong credentials
/// are tried by two schemes at the most, so that no account gets locked.
class SchemeLogin : public HttpLogin {
  public:
    /// `memory` may be null; what is referred to outlives the login.
    SchemeLogin(LoginIdentity identity, const LoginOperations& operations, LoginMemory* memory);

    void connected(bool kept) override;
    std::string line(std::string_view method, std::string_view target) override;
    [[nodiscard]] std::string shown() const override { return shown_; }
    bool challenged(const std::vector<std::string>& fields, bool kept) override;
    void accepted() override;
    [[nodiscard]] std::string owner() const override {
        return is_for_connection() ? identity_.key() : std::string();
    }
    [[nodiscard]] std::string trouble() const override { return trouble_; }

  private:
    [[nodiscard]] bool is_for_connection() const {
        return scheme_ == LoginScheme::ntlm || scheme_ == LoginScheme::negotiate;
    }
    bool answer_message(const AuthChallenge& challenge, bool kept);
    bool refused(const std::vector<AuthChallenge>& offers);
    bool choose(const std::vector<AuthChallenge>& offers);
    bool usable(const AuthChallenge& offer, LoginScheme scheme);
    [[nodiscard]] std::string ntlm_answer(const std::string& challenge) const;

    LoginIdentity identity_;
    const LoginOperations operations_;
    LoginMemory* memory_;
    LoginScheme scheme_ = LoginScheme::none;
    std::string challenge_;  ///< Digest: its text
    std::string message_;    ///< NTLM: the answer to be sent next
    std::string shown_;
    std::string trouble_;
    std::set<LoginScheme> failed_;
    int tries_ = 0;             ///< of credentials that the other side looked at
    bool from_memory_ = false;  ///< the Digest challenge is an earlier request's
    bool renewed_ = false;      ///< a nonce that was too old was replaced once
    bool greeted_ = false;      ///< NTLM: its first message was sent
    bool answered_ = false;     ///< NTLM: its last message was sent
    bool logged_in_ = false;    ///< NTLM: this connection is
};

/// Gives connections through this proxy the logins of its user.
void add_login(ProxyPlan& proxy, const LibraryTables& libraries, LoginMemory* memory);

}  // namespace vantlow
