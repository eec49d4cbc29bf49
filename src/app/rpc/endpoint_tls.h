// TLS below the endpoint's connections, and the bytes of a connection with it or without.
#pragma once

#include <boost/asio/async_result.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/stream_traits.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/websocket/teardown.hpp>
#include <functional>
#include <memory>
#include <utility>

#include "app/rpc/certificate.h"

namespace vantlow::control {

namespace asio = boost::asio;
namespace beast = boost::beast;
using boost::system::error_code;
using Tcp = asio::ip::tcp;

/// TLS over one socket, which outlives it. Every operation calls `done` once, later, on the socket's thread;
/// the socket's own time-out holds for them.
class TlsLayer {
  public:
    using Done = std::function<void(const error_code&)>;
    using Moved = std::function<void(const error_code&, std::size_t)>;

    TlsLayer() = default;
    TlsLayer(const TlsLayer&) = delete;
    TlsLayer& operator=(const TlsLayer&) = delete;
    virtual ~TlsLayer() = default;
    virtual void shake_hands(Done done) = 0;
    virtual void read_some(asio::mutable_buffer into, Moved done) = 0;
    virtual void write_some(asio::const_buffer from, Moved done) = 0;
    /// Tells the other side that nothing follows, and waits for the same from there.
    virtual void shut_down(Done done) = 0;
};

/// The endpoint's side of TLS: 1.2 or 1.3 (RFC 5246, RFC 8446), with one certificate.
class TlsServer {
  public:
    TlsServer() = default;
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;
    virtual ~TlsServer() = default;
    virtual std::unique_ptr<TlsLayer> wrap(beast::tcp_stream& socket) = 0;
};

/// `unsupported`, with a sentence, where this build's endpoint has no TLS.
Outcome<std::unique_ptr<TlsServer>> make_tls_server(const ControlCertificate& certificate);

/// The bytes of a connection: a stream for Beast, whose operations come back on the socket's thread.
class Wire {
  public:
    using executor_type = beast::tcp_stream::executor_type;

    /// `server`, which outlives it: null for a connection in the clear.
    Wire(Tcp::socket socket, TlsServer* server)
        : socket_(std::make_unique<beast::tcp_stream>(std::move(socket))),
          tls_(server == nullptr ? nullptr : server->wrap(*socket_)) {}

    executor_type get_executor() noexcept { return socket_->get_executor(); }
    [[nodiscard]] beast::tcp_stream& next_layer() noexcept { return *socket_; }
    [[nodiscard]] const beast::tcp_stream& next_layer() const noexcept { return *socket_; }
    /// Null in the clear.
    [[nodiscard]] TlsLayer* tls() const noexcept { return tls_.get(); }

    template <class Buffers, class Handler>
    void async_read_some(const Buffers& buffers, Handler&& handler) {
        if (tls_)
            return tls_->read_some(first_of<asio::mutable_buffer>(buffers),
                                   moved(std::forward<Handler>(handler)));
        socket_->async_read_some(buffers, std::forward<Handler>(handler));
    }
    template <class Buffers, class Handler>
    void async_write_some(const Buffers& buffers, Handler&& handler) {
        if (tls_)
            return tls_->write_some(first_of<asio::const_buffer>(buffers),
                                    moved(std::forward<Handler>(handler)));
        socket_->async_write_some(buffers, std::forward<Handler>(handler));
    }
    template <class Handler>
    friend void async_teardown(beast::role_type role, Wire& wire, Handler&& handler) {
        if (!wire.tls_) {
            using beast::websocket::async_teardown;
            return async_teardown(role, *wire.socket_, std::forward<Handler>(handler));
        }
        const auto kept = std::make_shared<std::decay_t<Handler>>(std::forward<Handler>(handler));
        wire.tls_->shut_down([kept](const error_code& error) { (*kept)(error); });
    }

  private:
    // An operation may move some of its bytes only: the first part that is not empty.
    template <class Buffer, class Buffers>
    static Buffer first_of(const Buffers& buffers) {
        Buffer found;
        for (auto at = asio::buffer_sequence_begin(buffers);
             found.size() == 0 && at != asio::buffer_sequence_end(buffers); ++at)
            found = *at;
        return found;
    }
    // A handler that can only be moved, as a function that can be copied.
    template <class Handler>
    static TlsLayer::Moved moved(Handler&& handler) {
        const auto kept = std::make_shared<std::decay_t<Handler>>(std::forward<Handler>(handler));
        return [kept](const error_code& error, std::size_t count) { (*kept)(error, count); };
    }

    std::unique_ptr<beast::tcp_stream> socket_;
    std::unique_ptr<TlsLayer> tls_;  // after the socket that it uses
};

}  // namespace vantlow::control
