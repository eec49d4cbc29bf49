#include "net/asio_parts.h"

namespace vantlow::net {
namespace {

bool is_passing(const error_code& error) {
    return error == asio::error::connection_aborted || error == asio::error::connection_reset ||
           error == asio::error::interrupted || error == asio::error::timed_out || would_block(error) ||
           error == boost::system::errc::protocol_error;
}

/// The half of a listener that lives as long as the system has an operation of it.
class Acceptor : public std::enable_shared_from_this<Acceptor> {
  public:
    explicit Acceptor(AsioLoop& loop) : loop_(loop), acceptor_(loop.context()), rest_(loop.context()) {}

    error_code listen(const SocketAddress& at, int backlog);
    void accept(Listener::Accepted call);
    void close() noexcept;
    [[nodiscard]] std::optional<SocketAddress> address() const;

  private:
    void take();
    void taken(error_code error, Tcp::socket socket);

    AsioLoop& loop_;
    Tcp::acceptor acceptor_;
    asio::steady_timer rest_;
    Tcp::endpoint peer_;  ///< of the connection that comes next
    Listener::Accepted call_;
    bool busy_ = false;
    bool exhausted_ = false;  ///< the last one failed for want of descriptors
};

error_code Acceptor::listen(const SocketAddress& at, int backlog) {
    error_code error = open_socket<Tcp>(acceptor_, at);
    if (error) return error;
    // On Windows this would let others take the port away; there a port is free at once anyway.
    if (!completions_only) acceptor_.set_option(Tcp::acceptor::reuse_address(true), error);
    error = bind_socket<Tcp>(acceptor_, at, loop_.way());
    if (!error) acceptor_.listen(backlog, error);
    return error;
}

void Acceptor::accept(Listener::Accepted call) {
    call_ = std::move(call);
    if (busy_) return;
    busy_ = true;
    if (!std::exchange(exhausted_, false)) {
        take();
        return;
    }
    rest_.expires_after(accept_rest);
    rest_.async_wait([self = shared_from_this()](const error_code& error) {
        if (!error) self->take();
    });
}

void Acceptor::take() {
    acceptor_.async_accept(peer_, [self = shared_from_this()](const error_code& error, Tcp::socket socket) {
        self->taken(error, std::move(socket));
    });
}

void Acceptor::taken(error_code error, Tcp::socket socket) {
    if (!acceptor_.is_open()) return;
    if (is_passing(error)) {
        take();
        return;
    }
    if (const int number = ask_hook(Operation::accept); number != 0) error = system_error_of(number);
    if (!error) {
        keep_from_children(static_cast<std::intptr_t>(socket.native_handle()));
        socket.non_blocking(true, error);
    }
    busy_ = false;
    exhausted_ = error && socket_fault(error.value()) == SocketFault::no_descriptors;
    const auto call = std::exchange(call_, nullptr);
    if (!call) return;
    if (error)
        call(failure_of(error));
    else
        call(loop_.stream_of(std::move(socket), address_of(peer_)));
}

void Acceptor::close() noexcept {
    const auto call = std::exchange(call_, nullptr);  // it may own whoever owns this
    error_code ignored;
    acceptor_.close(ignored);
    rest_.cancel();
}

std::optional<SocketAddress> Acceptor::address() const {
    error_code error;
    const auto endpoint = acceptor_.local_endpoint(error);
    return error ? std::nullopt : std::optional(address_of(endpoint));
}

class AsioListener final : public Listener {
  public:
    explicit AsioListener(std::shared_ptr<Acceptor> acceptor) : acceptor_(std::move(acceptor)) {}
    ~AsioListener() override { acceptor_->close(); }

    void accept(Accepted call) override { acceptor_->accept(std::move(call)); }
    void close() noexcept override { acceptor_->close(); }
    [[nodiscard]] std::optional<SocketAddress> address() const override { return acceptor_->address(); }

  private:
    std::shared_ptr<Acceptor> acceptor_;
};

}  // namespace

Outcome<std::unique_ptr<Listener>> AsioLoop::listen(const SocketAddress& at, int backlog) {
    auto acceptor = std::make_shared<Acceptor>(*this);
    if (const error_code error = acceptor->listen(at, backlog)) return failure_of(error);
    return std::unique_ptr<Listener>(std::make_unique<AsioListener>(std::move(acceptor)));
}

}  // namespace vantlow::net
