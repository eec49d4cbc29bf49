// Parts that the files over Boost.Beast in this folder share; no other file includes them.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "app/rpc/endpoint.h"
#include "app/rpc/endpoint_tls.h"

namespace vantlow::control {

namespace http = boost::beast::http;
using HttpRequest = http::request<http::string_body>;

// The bounds of what a stranger may cost.
inline constexpr std::size_t most_sessions = 2048;
inline constexpr std::size_t most_of_one_address = 1024;
inline constexpr std::size_t most_refusals_of_one_address = 8;   ///< kept back at once
inline constexpr std::size_t small_request = 64 * 1024;          ///< bytes, for whom no room is reserved
inline constexpr std::size_t room_for_large = 64 * 1024 * 1024;  ///< bytes, for all larger ones together
inline constexpr std::uint32_t largest_head = 64 * 1024;         ///< browsers send many headers

/// The answer to a request: its run, or none where too many refusals are kept back already.
using Done = std::function<void(std::optional<rpc::Run>)>;

class Session;

/// The things that all sessions share. But for the context, all is for the endpoint's thread.
struct Shared : std::enable_shared_from_this<Shared> {
    Shared(const ControlConfig& settings, EndpointPatience times, Endpoint::Handler work,
           std::unique_ptr<TlsServer> server)
        : config(settings), patience(times), handler(std::move(work)), tls(std::move(server)) {}

    struct Waiting {
        const Session* session = nullptr;  ///< that `done` keeps alive
        Done done;
    };
    const ControlConfig config;
    const EndpointPatience patience;
    const Endpoint::Handler handler;
    const std::unique_ptr<TlsServer> tls;  ///< null: connections are in the clear
    rpc::WrongTokens wrong;
    std::set<Session*> sessions;
    std::map<std::string, std::size_t> by_address;
    std::map<std::string, std::size_t> refusals;  ///< that are kept back now
    std::map<std::uint64_t, Waiting> waiting;     ///< requests that are worked on
    std::uint64_t last_request = 0;
    std::size_t large = 0;  ///< bytes of large requests, now
    bool closing = false;
    asio::io_context context{1};  // last: its end takes the sessions along, which use the above
};

/// One connection. Lives as long as it waits for something, and belongs to the endpoint's thread.
class Session {
  public:
    Session(Shared& shared, std::string address) : shared_(shared), address_(std::move(address)) {
        shared_.sessions.insert(this);
        ++shared_.by_address[address_];
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    virtual ~Session();
    /// Ends it; with an answer on its way, behind that one.
    virtual void close() = 0;
    virtual void notify(const std::shared_ptr<const std::string>& text) { static_cast<void>(text); }

    [[nodiscard]] Shared& shared() const noexcept { return shared_; }
    [[nodiscard]] const std::string& address() const noexcept { return address_; }

  protected:
    /// Has room for a request of this many bytes, in place of what it had; false where there is none.
    bool hold_room(std::size_t bytes);

  private:
    Shared& shared_;
    const std::string address_;
    std::size_t room_ = 0;  ///< of Shared::large
};

/// Hands a request to the handler. `done`, which holds the session, comes back on the endpoint's thread;
/// later where a token was wrong.
void hand_on(const Session& session, rpc::Run run, Done done);

/// Begins to serve a connection that was accepted.
void serve_http(Shared& shared, Tcp::socket socket, std::string address);
/// Goes on with a connection whose request asks for a WebSocket.
void serve_websocket(Shared& shared, Wire wire, const std::string& address, const HttpRequest& request);

}  // namespace vantlow::control
