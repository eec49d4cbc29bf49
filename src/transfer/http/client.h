// One resource asked for over HTTP, by whatever leads to it; or a document fetched into memory.
#pragma once

#include <memory>
#include <string>

#include "transfer/http/conversation.h"
#include "transfer/http/errand.h"

namespace vantlow {

class LoginMemory;
class StrictHosts;

/// The answer at the end of the way.
struct HttpAnswer {
    HttpHead head;
    Target target;           ///< who answered
    std::u16string address;  ///< the same as an address; after `moved` where the errand goes on
    bool had_user = false;   ///< credentials were sent to whoever refuses
    std::string trouble;     ///< why a refusal has no further answer; may be empty
    bool form_sent = false;  ///< some server may have got the errand's form, whatever else happened
};

/// Answers challenges, keeps cookies and follows redirects, as one conversation with one server after the
/// other. Belongs to one thread; a stop ends every wait. Destroying it ends the connection.
class HttpClient {
  public:
    explicit HttpClient(const ConnectionContext& context);

    /// Asks until the answer is no redirect that can be followed: success, whatever its status says. `moved`
    /// for a redirect to an address that is none of HTTP; `too_many_redirects`; `invalid_url`; else what the
    /// connection says. Failures are logged.
    Result ask(const HttpErrand& errand, HttpAnswer& answer);

    /// Begins the body of the answer with `coding` undone. `unsupported`, with a sentence, without the
    /// library that does it.
    Result begin_body(ContentCoding coding, std::size_t buffer_size);
    Moved read(std::span<std::byte> into, Clock::time_point until) { return conversation_.read(into, until); }
    /// The same past the program's memory: see ByteSource.
    [[nodiscard]] bool can_fill() const noexcept { return conversation_.can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) {
        return conversation_.fill(conduit, most, until);
    }

    /// Ends the conversation; the connection is kept where its answer was read whole.
    void finish() { conversation_.finish(); }
    /// Ends it for an answer that nobody wants.
    void leave(const HttpAnswer& answer);
    /// The same for an answer that is a refusal, which is logged: `credentials_refused`, `busy` where a later
    /// attempt may do, `server_error`.
    Result refuse(const HttpAnswer& answer);
    /// Ends it; the connection is not kept.
    void drop() { socket_.close(); }

  private:
    void load_cookies(const HttpErrand& errand);
    [[nodiscard]] std::u16string secured_where_wanted(const std::u16string& address) const;
    Result ask_one(const HttpErrand& errand, const HttpHop& hop, HttpAnswer& answer);
    void remember(const HttpErrand& errand, const HttpAnswer& answer);
    Result redirect(const HttpErrand& errand, HttpAnswer& answer);

    ConnectionContext context_;
    LoginMemory& logins_;
    /// The jar of the run, or of the errand's own cookies.
    CookieJar& jar_of(const HttpErrand& errand);

    CookieJar& cookies_;
    CookieJars& jars_;
    std::string own_key_;
    std::shared_ptr<CookieJar> own_;
    StrictHosts& strict_hosts_;
    CBaseSocket socket_;
    HttpConversation conversation_;
};

/// A document with the answer that brought it.
struct HttpDocument {
    HttpAnswer answer;
    std::string bytes;
};

/// Fetches a whole document of at most `most` bytes, unpacked, its body within the errand's time-out.
/// Everything but a status from 200 to 299 is a failure, and every failure is logged.
Outcome<HttpDocument> fetch_document(const ConnectionContext& context, const HttpErrand& errand,
                                     std::size_t most);

}  // namespace vantlow
