#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

#include "net/asio_parts.h"

namespace vantlow::net {
namespace {

constexpr std::size_t most_unsent = 16384;
// How long a closed stream goes on sending what it kept.
constexpr std::chrono::seconds linger_time{10};

/// The half of a stream that lives as long as the system has an operation of it.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(Tcp::socket socket, bool keep_unsent)
        : socket_(std::move(socket)), linger_(socket_.get_executor()), keep_unsent_(keep_unsent) {}

    void connect(const SocketAddress& to, const NetworkWay& way, Network::Connected done);
    void take_over(const SocketAddress& peer);  ///< a socket that is connected
    Step read(std::span<std::byte> into);
    Step write(std::span<const std::byte> from);
    void when_readable(Callback call);
    void when_writable(Callback call);
    Result shut_down_sending();
    void close() noexcept;
    void reset() noexcept;
    [[nodiscard]] const Tcp::socket& socket() const noexcept { return socket_; }
    [[nodiscard]] const std::optional<SocketAddress>& peer() const noexcept { return peer_; }

  private:
    void connected(const SocketAddress& to, error_code error);
    void await(Tcp::socket::wait_type kind, Callback Connection::*call, bool Connection::*waiting);
    void await_readable();
    void await_writable();
    void notify(Callback Connection::*call);
    std::size_t keep(std::span<const std::byte> from);
    void kept_is_sent(const error_code& error);

    Tcp::socket socket_;
    asio::steady_timer linger_;
    const bool keep_unsent_;
    bool connecting_ = false;
    bool closed_ = false;
    bool ends_sending_ = false;  ///< as soon as what is kept is sent
    bool waits_readable_ = false;
    bool waits_writable_ = false;
    error_code broken_;                  ///< what an earlier operation failed with
    std::vector<std::byte> kept_;        ///< being sent by the system; empty: nothing is
    std::optional<SocketAddress> peer_;  ///< the system forgets it when the connection ends
    Network::Connected connected_;       ///< to be called
    Callback readable_;
    Callback writable_;
};

void Connection::connect(const SocketAddress& to, const NetworkWay& way, Network::Connected done) {
    connecting_ = true;
    connected_ = std::move(done);
    error_code error = open_socket<Tcp>(socket_, to);
    if (!error) {
        const auto native = static_cast<std::intptr_t>(socket_.native_handle());
        if (const int number = way.bind(native, to.is_ipv6(), 0); number != 0)
            error = system_error_of(number);
    }
    if (const int number = error ? 0 : ask_hook(Operation::connect); number != 0)
        error = system_error_of(number);
    if (error) {
        asio::post(socket_.get_executor(),
                   [self = shared_from_this(), to, error] { self->connected(to, error); });
        return;
    }
    socket_.async_connect(endpoint_of<Tcp>(to),
                          [self = shared_from_this(), to](const error_code& e) { self->connected(to, e); });
}

void Connection::connected(const SocketAddress& to, error_code error) {
    connecting_ = false;
    if (closed_) return;
    if (const int number = ask_hook(Operation::connect_end); number != 0) error = system_error_of(number);
    if (error) {
        broken_ = error;
        error_code ignored;
        socket_.close(ignored);  // its descriptor is wanted elsewhere
    } else {
        take_over(to);
    }
    const auto call = std::exchange(connected_, nullptr);
    if (call) call(error ? failure_of(error) : Result());
    if (closed_) return;
    if (readable_) await_readable();
    if (writable_) await_writable();
}

void Connection::take_over(const SocketAddress& peer) {
    peer_ = peer;
    error_code ignored;  // options are wishes: without one a connection is slower
    socket_.set_option(Tcp::no_delay(true), ignored);
}

Step Connection::read(std::span<std::byte> into) {
    if (connecting_) return Step::again(Wants::readable);
    error_code error = broken_;
    if (const int number = ask_hook(Operation::receive); number != 0) error = system_error_of(number);
    const std::size_t count = error ? 0 : socket_.read_some(asio::buffer(into.data(), into.size()), error);
    if (error == asio::error::eof) return Step::closed();
    if (would_block(error)) return Step::again(Wants::readable);
    if (error) return Step::failed(error.value());
    return Step::moved(count);
}

Step Connection::write(std::span<const std::byte> from) {
    if (connecting_ || !kept_.empty()) return Step::again(Wants::writable);
    error_code error = broken_;
    if (const int number = ask_hook(Operation::send); number != 0) error = system_error_of(number);
    const std::size_t count = error ? 0 : socket_.write_some(asio::buffer(from.data(), from.size()), error);
    if (would_block(error)) return keep_unsent_ ? Step::moved(keep(from)) : Step::again(Wants::writable);
    if (error) return Step::failed(error.value());
    return Step::moved(count);
}

std::size_t Connection::keep(std::span<const std::byte> from) {
    from = from.first(std::min(from.size(), most_unsent));
    kept_.assign(from.begin(), from.end());
    asio::async_write(
        socket_, asio::buffer(kept_),
        [self = shared_from_this()](const error_code& error, std::size_t) { self->kept_is_sent(error); });
    return from.size();
}

void Connection::kept_is_sent(const error_code& error) {
    std::vector<std::byte>().swap(kept_);
    error_code ignored;
    if (closed_) {
        linger_.cancel();
        socket_.close(ignored);
        return;
    }
    if (error) broken_ = error;
    if (ends_sending_) socket_.shutdown(Tcp::socket::shutdown_send, ignored);
    notify(&Connection::writable_);
}

void Connection::notify(Callback Connection::*call) {
    const Callback now = std::exchange(this->*call, nullptr);
    if (now && !closed_) now();
}

void Connection::await(Tcp::socket::wait_type kind, Callback Connection::*call, bool Connection::*waiting) {
    if (connecting_ || this->*waiting) return;
    this->*waiting = true;
    socket_.async_wait(kind, [self = shared_from_this(), call, waiting](const error_code&) {
        (*self).*waiting = false;
        self->notify(call);  // the next step tells a failure
    });
}

void Connection::await_readable() {
    await(Tcp::socket::wait_read, &Connection::readable_, &Connection::waits_readable_);
}

void Connection::await_writable() {
    if (!keep_unsent_) {
        await(Tcp::socket::wait_write, &Connection::writable_, &Connection::waits_writable_);
    } else if (kept_.empty()) {
        asio::post(socket_.get_executor(), [self = shared_from_this()] {
            if (self->kept_.empty()) self->notify(&Connection::writable_);
        });
    }
}

void Connection::when_readable(Callback call) {
    readable_ = std::move(call);
    if (readable_) await_readable();
}

void Connection::when_writable(Callback call) {
    writable_ = std::move(call);
    if (writable_) await_writable();
}

Result Connection::shut_down_sending() {
    if (broken_) return failure_of(broken_);
    if (!kept_.empty()) {
        ends_sending_ = true;
        return {};
    }
    error_code error;
    socket_.shutdown(Tcp::socket::shutdown_send, error);
    return error ? failure_of(error) : Result();
}

void Connection::close() noexcept {
    if (closed_) return;
    closed_ = true;
    // They may own whoever owns this.
    const auto connected = std::exchange(connected_, nullptr);
    const auto readable = std::exchange(readable_, nullptr);
    const auto writable = std::exchange(writable_, nullptr);
    error_code ignored;
    if (kept_.empty()) {
        socket_.close(ignored);
        return;
    }
    linger_.expires_after(linger_time);
    linger_.async_wait([self = shared_from_this()](const error_code& error) {
        error_code unheard;
        if (!error) self->socket_.close(unheard);
    });
}

void Connection::reset() noexcept {
    if (closed_) return;
    error_code ignored;
    socket_.set_option(asio::socket_base::linger(true, 0), ignored);
    close();
    socket_.close(ignored);
}

class AsioStream final : public Stream {
  public:
    explicit AsioStream(std::shared_ptr<Connection> connection) : connection_(std::move(connection)) {}
    ~AsioStream() override { connection_->close(); }

    Step read(std::span<std::byte> into, Clock::time_point) override { return connection_->read(into); }
    Step write(std::span<const std::byte> from, Clock::time_point) override {
        return connection_->write(from);
    }
    void when_readable(Callback call) override { connection_->when_readable(std::move(call)); }
    void when_writable(Callback call) override { connection_->when_writable(std::move(call)); }
    Result shut_down_sending() override { return connection_->shut_down_sending(); }
    void close() noexcept override { connection_->close(); }
    void reset() noexcept override { connection_->reset(); }
    [[nodiscard]] std::optional<SocketAddress> local_address() const override;
    [[nodiscard]] std::optional<SocketAddress> peer_address() const override { return connection_->peer(); }

  private:
    std::shared_ptr<Connection> connection_;
};

std::optional<SocketAddress> AsioStream::local_address() const {
    error_code error;
    const auto endpoint = connection_->socket().local_endpoint(error);
    return error ? std::nullopt : std::optional(address_of(endpoint));
}

}  // namespace

std::unique_ptr<Stream> AsioLoop::connect(const SocketAddress& to, Connected done) {
    auto connection = std::make_shared<Connection>(Tcp::socket(context_), keep_unsent_);
    connection->connect(to, way_, std::move(done));
    return std::make_unique<AsioStream>(std::move(connection));
}

std::unique_ptr<Stream> AsioLoop::stream_of(Tcp::socket socket, const SocketAddress& peer) {
    auto connection = std::make_shared<Connection>(std::move(socket), keep_unsent_);
    connection->take_over(peer);
    return std::make_unique<AsioStream>(std::move(connection));
}

}  // namespace vantlow::net
