// One conversation with one HTTP server: a request, its answer, the body.
#pragma once

#include <memory>
#include <string>

#include "transfer/http/body.h"
#include "transfer/http/head.h"
#include "transfer/http/request.h"

namespace vantlow {

/// Speaks HTTP/1.1 (RFC 9112) over one CBaseSocket. Knows no job and follows no redirect: it tells the
/// answer. Belongs to one thread.
class HttpConversation {
  public:
    HttpConversation(CBaseSocket& socket, LogSink& log) : socket_(socket), log_(log) {}

    /// Opens the connection (a kept one where there is one), sends the request and reads the header of the
    /// final answer, interim ones skipped. A kept connection that turns out to be dead is replaced by a new
    /// one. The whole exchange up to the end of the header takes at most the plan's time-out beyond the
    /// connecting itself, however slowly the server dribbles.
    Result ask(const ConnectPlan& plan, const HttpRequest& request, HttpHead& head);

    /// Begins the body of the answer to the last ask().
    Result begin_body(const GzipOperations& gzip, std::size_t buffer_size);
    Moved read(std::span<std::byte> into, Clock::time_point until) { return body_->read(into, until); }

    /// Reads away a short body that nobody wants (a redirect's, an error's), so that the connection can be
    /// kept.
    void skip_body();
    /// Ends the conversation. The connection is kept for reuse when the answer was read whole and the server
    /// agreed.
    void finish();

  private:
    Result exchange(const ConnectPlan& plan, const HttpRequest& request, HttpHead& head, bool& dead);
    Result read_head(Clock::time_point until, HttpHead& head, bool& dead);
    Result parse_one(std::size_t end, HttpHead& head);

    CBaseSocket& socket_;
    LogSink& log_;
    HttpHead head_;
    std::string received_;  ///< header bytes, and what came behind them
    std::unique_ptr<BodySource> body_;
};

/// "404 Not Found", with what cannot be shown on a terminal replaced.
std::string status_text(const HttpHead& head);

}  // namespace vantlow
