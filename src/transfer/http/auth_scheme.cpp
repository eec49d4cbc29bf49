#include "transfer/http/auth_scheme.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "base/codes.h"
#include "base/digest.h"
#include "base/text.h"
#include "platform/local_text.h"

namespace vantlow {
namespace {

constexpr int most_tries = 2;
constexpr std::size_t most_known = 1000;
constexpr const char* mask = "********";
// The first NTLM message: Unicode, OEM, target, NTLM, always sign, 128 and 56 bits; no domain, no
// workstation.
constexpr const char* ntlm_greeting = "TlRMTVNTUAABAAAAB4IAoAAAAAAAAAAAAAAAAAAAAAA=";

LoginScheme scheme_of(const std::string& word) {
    if (word == "ntlm") return LoginScheme::ntlm;
    if (word == "negotiate") return LoginScheme::negotiate;
    return word == "digest" ? LoginScheme::digest : LoginScheme::basic;
}

const char* word_of(LoginScheme scheme) {
    return scheme == LoginScheme::negotiate ? "Negotiate " : "NTLM ";
}

}  // namespace

LoginOperations LoginOperations::of(const LibraryTables& libraries) {
    LoginOperations all;
    all.digest = {libraries.secur.Digest2617, libraries.ssl.WDigest_Response};
    all.ntlm = libraries.secur.NTLM1_ChallengeResponse;
    all.challenge = libraries.ssl.NTLM_Challenge;
    all.response = libraries.ssl.NTLM_Response;
    all.destroy = libraries.ssl.NTLM_Destroy;
    return all;
}

LoginMemory::Known LoginMemory::find(const std::string& who) const {
    const MutexLock guard(mutex_);
    const auto found = known_.find(who);
    return found == known_.end() ? Known{} : found->second;
}

void LoginMemory::remember(const std::string& who, Known known) {
    const MutexLock guard(mutex_);
    if (known_.size() >= most_known) known_.clear();
    known_[who] = std::move(known);
}

void LoginMemory::forget(const std::string& who) {
    const MutexLock guard(mutex_);
    known_.erase(who);
}

std::string LoginIdentity::key() const {
    if (user.empty()) return {};
    const std::string text = place + '\0' + user + '\0' + password;
    Digest digest(DigestKind::sha256);
    digest.update(std::as_bytes(std::span(text)));
    return to_hex(digest.finish());
}

SchemeLogin::SchemeLogin(LoginIdentity identity, const LoginOperations& operations, LoginMemory* memory)
    : identity_(std::move(identity)), operations_(operations), memory_(memory) {
    if (identity_.user.empty()) return;
    const auto known = memory_ != nullptr ? memory_->find(identity_.key()) : LoginMemory::Known{};
    scheme_ = known.scheme == LoginScheme::none ? LoginScheme::basic : known.scheme;
    challenge_ = known.challenge;
    from_memory_ = scheme_ == LoginScheme::digest;
}

void SchemeLogin::connected(bool kept) {
    logged_in_ = kept && is_for_connection();
    message_.clear();
    greeted_ = answered_ = false;
}

std::string SchemeLogin::line(std::string_view method, std::string_view target) {
    shown_.clear();
    switch (scheme_) {
        case LoginScheme::none:
            return {};
        case LoginScheme::basic:
            shown_ = std::string("Basic ") + mask;
            return "Basic " + to_base64(identity_.user + ":" + identity_.password);
        case LoginScheme::digest: {
            const auto answer =
                CAuthDigest(challenge_)
                    .answer(operations_.digest,
                            {identity_.user, identity_.password, std::string(method), std::string(target),
                             static_cast<std::int64_t>(std::time(nullptr))});
            if (!answer) return {};
            shown_ = std::string("Digest ") + mask;
            return "Digest " + *answer;
        }
        case LoginScheme::negotiate:
        case LoginScheme::ntlm:
            break;
    }
    if (logged_in_) return {};
    if (message_.empty()) {
        greeted_ = true;
        answered_ = false;
        shown_ = std::string(word_of(scheme_)) + ntlm_greeting;
        return shown_;
    }
    answered_ = true;
    shown_ = word_of(scheme_) + std::string(mask);
    return word_of(scheme_) + std::exchange(message_, {});
}

std::string SchemeLogin::ntlm_answer(const std::string& challenge) const {
    const auto bytes = from_base64(challenge);
    if (!bytes) return {};
    const std::string user = to_utf8(from_ansi(identity_.user));
    const std::string password = to_utf8(from_ansi(identity_.password));
    // The answer holds the names, and repeats what the challenge tells of its target.
    std::vector<std::byte> room(bytes->size() + 4 * user.size() + 1024);
    std::size_t size = 0;
    if (scheme_ == LoginScheme::ntlm && operations_.ntlm != nullptr) {
        size = operations_.ntlm(bytes->data(), bytes->size(), user.c_str(), password.c_str(), room.data(),
                                room.size());
    } else if (operations_.challenge != nullptr && operations_.response != nullptr &&
               operations_.destroy != nullptr) {
        VantlowNtlm* const read = operations_.challenge(bytes->data(), bytes->size());
        size = operations_.response(read, user.c_str(), password.c_str(), room.data(), room.size());
        operations_.destroy(read);
    }
    return to_base64({reinterpret_cast<const char*>(room.data()), size});
}

// Answers the challenge message of an exchange that was begun.
bool SchemeLogin::answer_message(const AuthChallenge& challenge, bool kept) {
    if (!kept) {
        trouble_ =
            "The connection was closed in the middle of an NTLM login, which belongs to one connection.";
        return false;
    }
    message_ = ntlm_answer(challenge.text);
    if (message_.empty()) trouble_ = "The NTLM challenge cannot be answered.";
    return !message_.empty();
}

// The other side did not take what was sent last; false when that is the end.
bool SchemeLogin::refused(const std::vector<AuthChallenge>& offers) {
    const auto offered = std::find_if(offers.begin(), offers.end(), [&](const AuthChallenge& offer) {
        return scheme_of(offer.scheme) == scheme_;
    });
    const bool was_offered = offered != offers.end();
    if (scheme_ == LoginScheme::digest && was_offered && !renewed_) {
        // A nonce that was too old says nothing about the credentials.
        if (CAuthDigest(offered->text).stale || from_memory_) {
            renewed_ = true;
            from_memory_ = false;
            return true;
        }
    }
    const bool sent_credentials = !is_for_connection() || answered_;
    // The other side has not looked at an answer of a scheme that it does not offer.
    if (sent_credentials && was_offered) ++tries_;
    failed_.insert(scheme_);
    if (scheme_ == LoginScheme::ntlm) failed_.insert(LoginScheme::negotiate);
    if (scheme_ == LoginScheme::negotiate && answered_) failed_.insert(LoginScheme::ntlm);
    return tries_ < most_tries;
}

bool SchemeLogin::usable(const AuthChallenge& offer, LoginScheme scheme) {
    if (scheme_of(offer.scheme) != scheme || failed_.count(scheme) > 0) return false;
    switch (scheme) {
        case LoginScheme::digest:
            return CAuthDigest(offer.text).can_answer(operations_.digest);
        case LoginScheme::ntlm:
            if (operations_.ntlm != nullptr || operations_.challenge != nullptr) return true;
            trouble_ = missing_library_text("libsecur");
            return false;
        case LoginScheme::negotiate:
            if (operations_.challenge != nullptr) return true;
            trouble_ = missing_library_text("libssl");
            return false;
        default:
            return true;
    }
}

bool SchemeLogin::choose(const std::vector<AuthChallenge>& offers) {
    constexpr std::array order{LoginScheme::ntlm, LoginScheme::negotiate, LoginScheme::digest,
                               LoginScheme::basic};
    for (const LoginScheme scheme : order) {
        // The first challenge that can be answered is taken: the order of several is the server's own.
        const auto found = std::find_if(offers.begin(), offers.end(),
                                        [&](const AuthChallenge& offer) { return usable(offer, scheme); });
        if (found == offers.end()) continue;
        scheme_ = scheme;
        challenge_ = scheme == LoginScheme::digest ? found->text : std::string();
        message_.clear();
        greeted_ = answered_ = false;
        return true;
    }
    return false;
}

bool SchemeLogin::challenged(const std::vector<std::string>& fields, bool kept) {
    if (identity_.user.empty()) return false;
    trouble_.clear();
    const std::vector<AuthChallenge> offers = read_challenges(fields);
    if (is_for_connection() && greeted_ && !answered_) {
        const auto message = std::find_if(offers.begin(), offers.end(), [&](const AuthChallenge& offer) {
            return scheme_of(offer.scheme) == scheme_ && !offer.text.empty();
        });
        if (message != offers.end()) return answer_message(*message, kept);
    }
    // A connection that was taken to be logged in was not: the login begins.
    const bool nothing_sent = is_for_connection() && !greeted_;
    logged_in_ = false;
    if (!nothing_sent && !refused(offers)) {
        if (memory_ != nullptr) memory_->forget(identity_.key());
        return false;
    }
    if (choose(offers)) return true;
    if (memory_ != nullptr) memory_->forget(identity_.key());
    return false;
}

void SchemeLogin::accepted() {
    logged_in_ = is_for_connection();
    if (memory_ == nullptr || scheme_ == LoginScheme::none) return;
    memory_->remember(identity_.key(), {scheme_, challenge_});
}

void add_login(ProxyPlan& proxy, const LibraryTables& libraries, LoginMemory* memory) {
    LoginIdentity identity{"proxy " + proxy.host + ":" + std::to_string(proxy.port), proxy.user,
                           proxy.password};
    proxy.make_login = [identity = std::move(identity), operations = LoginOperations::of(libraries), memory] {
        return std::make_unique<SchemeLogin>(identity, operations, memory);
    };
}

}  // namespace vantlow
