// One conversation with one HTTP server: a request, its answer, the body.
#pragma once

#include <memory>
#include <string>

#include "transfer/http/body.h"
#include "transfer/http/head.h"
#include "transfer/http/request.h"

namespace vantlow {

/// The logins that answer a server's and a proxy's challenges; null: challenges are answers like others.
struct HttpLogins {
    HttpLogin* server = nullptr;
    HttpLogin* proxy = nullptr;  ///< of a proxy that gets the requests themselves
};

/// Speaks HTTP/1.1 (RFC 9112) over one CBaseSocket. Knows no job and follows no redirect: it tells the
/// answer. Belongs to one thread.
class HttpConversation {
  public:
    HttpConversation(CBaseSocket& socket, LogSink& log) : socket_(socket), log_(log) {}

    /// Opens the connection (a kept one where there is one), sends the request and reads the header of the
    /// final answer, interim ones skipped. A kept connection that turns out to be dead is replaced by a new
    /// one. The whole exchange up to the end of the header takes at most the plan's time-out beyond the
    /// connecting itself, however slowly the server dribbles. With logins a refusal (401, 407) that they have
    /// an answer to is answered, over the same connection where that goes on, else over a new one.
    Result ask(const ConnectPlan& plan, const HttpRequest& request, HttpHead& head,
               const HttpLogins& logins = {});

    /// The form of the last request, or a part of it, was sent.
    [[nodiscard]] bool has_sent_form() const noexcept { return form_sent_; }

    /// Begins the body of the answer to the last ask(). `coding` is undone: the answer's own, or identity to
    /// keep the bytes as they come.
    Result begin_body(ContentCoding coding, const UnpackOperations& operations, std::size_t buffer_size);
    Moved read(std::span<std::byte> into, Clock::time_point until) { return body_->read(into, until); }
    /// The same past the program's memory: see ByteSource.
    [[nodiscard]] bool can_fill() const noexcept { return body_ && body_->can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) {
        return body_->fill(conduit, most, until);
    }

    /// Reads away a short body that nobody wants (a redirect's, an error's), so that the connection can be
    /// kept. Nothing when its reading was begun.
    void skip_body();
    /// Ends the conversation. The connection is kept for reuse when the answer was read whole and the server
    /// agreed.
    void finish();

  private:
    Result ask_once(const ConnectPlan& plan, const HttpRequest& request, HttpHead& head,
                    const HttpLogins& logins, bool go_on);
    Result open(const ConnectPlan& plan, const HttpLogins& logins);
    Result exchange(const ConnectPlan& plan, HttpRequest request, HttpHead& head, const HttpLogins& logins,
                    bool& dead);
    bool stands_for_more();
    // How far the search for the final answer's header is.
    struct Search {
        Clock::time_point until;
        std::size_t searched = 0;  // bytes of the header that were looked through for its end
        std::size_t rubbish = 0;   // bytes passed over
        int interim_answers = 0;
    };
    Result pass_over(Search& search);
    Result receive_more(Clock::time_point until);
    Result read_head(Clock::time_point until, HttpHead& head, bool& nothing_came);
    Result parse_one(std::size_t end, HttpHead& head);

    CBaseSocket& socket_;
    LogSink& log_;
    HttpHead head_;
    bool head_only_ = false;  ///< no body follows the last answer, whatever it says
    bool form_sent_ = false;
    std::string received_;  ///< header bytes, and what came behind them
    std::unique_ptr<BodySource> body_;
};

/// "404 Not Found", with what cannot be shown on a terminal replaced.
std::string status_text(const HttpHead& head);

}  // namespace vantlow
