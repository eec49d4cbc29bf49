#include <algorithm>
#include <boost/asio/ip/multicast.hpp>
#include <boost/asio/post.hpp>

#include "net/asio_parts.h"

namespace vantlow::net {
namespace {

namespace multicast = asio::ip::multicast;

constexpr std::size_t largest_datagram = 65536;
constexpr int wanted_room = 1024 * 1024;  // of the system, for datagrams that are to be received
// So many in a row that came back as undeliverable are passed over, before others have their turn.
constexpr int most_returned = 16;

/// The half of a datagram socket that lives as long as the system has an operation of it.
class Port : public std::enable_shared_from_this<Port> {
  public:
    explicit Port(AsioLoop& loop) : way_(loop.way()), socket_(loop.context()) {}

    error_code bind(const SocketAddress& at);
    error_code join(const SocketAddress& group);
    error_code join_by(const NetworkWay::State& state, const asio::ip::address& group);
    Step receive(std::span<std::byte> into, SocketAddress& from);
    Step send(std::span<const std::byte> datagram, const SocketAddress& to);
    void when_readable(Callback call);
    void when_writable(Callback call);
    void close() noexcept;
    [[nodiscard]] std::optional<SocketAddress> address() const;

  private:
    std::span<std::byte> room_for(std::span<std::byte> into);
    void fetch();
    void fetched(const error_code& error, std::size_t count);
    void notify(Callback& call);

    const NetworkWay way_;
    Udp::socket socket_;
    // Every system can wait for a whole datagram, but not every one for the news that there is one.
    std::vector<std::byte> held_;
    std::vector<std::byte> whole_;  ///< room for a datagram that is to be cut off
    std::size_t held_bytes_ = 0;
    Udp::endpoint held_from_;
    bool is_held_ = false;
    bool fetching_ = false;
    bool waits_writable_ = false;
    Callback readable_;
    Callback writable_;
};

/// Windows tells with the next datagram what became of an earlier one.
bool is_about_earlier(const error_code& error) {
    const SocketFault fault = socket_fault(error.value());
    return fault == SocketFault::reset || fault == SocketFault::refused || fault == SocketFault::unreachable;
}

error_code Port::bind(const SocketAddress& at) {
    const error_code error = open_socket<Udp>(socket_, at);
    if (error) return error;
    error_code ignored;  // a wish: with less room more is lost while others have their turn
    socket_.set_option(asio::socket_base::receive_buffer_size(wanted_room), ignored);
    return bind_socket<Udp>(socket_, at, way_);
}

error_code Port::join(const SocketAddress& group) {
    error_code error = open_socket<Udp>(socket_, group);
    if (!error) socket_.set_option(asio::socket_base::reuse_address(true), error);
    if (error) return error;
    const auto any = SocketAddress::from_literal(group.is_ipv6() ? "::" : "0.0.0.0", group.port());
    const auto native = static_cast<std::intptr_t>(socket_.native_handle());
    if (const int number = way_.hold(native, group.is_ipv6()); number != 0) return system_error_of(number);
    // Datagrams to a group come to a socket that is bound to no address of its own.
    error = bind_socket<Udp>(socket_, *any, NetworkWay());
    if (error) return error;
    const auto address = endpoint_of<Udp>(group).address();
    if (!way_.is_any()) {
        const auto state = way_.look();
        return state ? join_by(*state, address) : system_error_of(state.failure().system_error);
    }
    socket_.set_option(multicast::join_group(address), error);
    return error;
}

error_code Port::join_by(const NetworkWay::State& state, const asio::ip::address& group) {
    error_code error;
    if (group.is_v6()) {
        socket_.set_option(multicast::outbound_interface(state.index6), error);
        if (!error) socket_.set_option(multicast::join_group(group.to_v6(), state.index6), error);
        return error;
    }
    if (!state.ipv4) return asio::error::address_family_not_supported;
    const auto own = endpoint_of<Udp>(*state.ipv4).address().to_v4();
    socket_.set_option(multicast::outbound_interface(own), error);
    if (!error) socket_.set_option(multicast::join_group(group.to_v4(), own), error);
    return error;
}

// Where there are only completions (and in Wine) a datagram that finds too little room may come empty instead
// of cut off: it gets room for all of it there.
std::span<std::byte> Port::room_for(std::span<std::byte> into) {
    if (!completions_only || into.size() >= largest_datagram) return into;
    whole_.resize(largest_datagram);
    return whole_;
}

Step Port::receive(std::span<std::byte> into, SocketAddress& from) {
    if (const int number = ask_hook(Operation::receive); number != 0) return Step::failed(number);
    if (std::exchange(is_held_, false)) {
        const std::size_t count = std::min(held_bytes_, into.size());
        std::copy_n(held_.begin(), count, into.begin());
        from = address_of(held_from_);
        return Step::moved(count);
    }
    for (int i = 0; i < most_returned; ++i) {
        error_code error;
        Udp::endpoint sender;
        const std::span<std::byte> room = room_for(into);
        const std::size_t count =
            socket_.receive_from(asio::buffer(room.data(), room.size()), sender, 0, error);
        if (!error || error == asio::error::message_size) {
            from = address_of(sender);
            const std::size_t bytes = error ? into.size() : std::min(count, into.size());
            if (room.data() != into.data()) std::copy_n(room.begin(), bytes, into.begin());
            return Step::moved(bytes);
        }
        if (would_block(error)) break;
        if (!is_about_earlier(error)) return Step::failed(error.value());
    }
    return Step::again(Wants::readable);
}

Step Port::send(std::span<const std::byte> datagram, const SocketAddress& to) {
    error_code error;
    if (to.size() == 0) error = asio::error::address_family_not_supported;
    if (const int number = ask_hook(Operation::send); number != 0) error = system_error_of(number);
    if (!error) {
        socket_.send_to(asio::buffer(datagram.data(), datagram.size()), endpoint_of<Udp>(to), 0, error);
    }
    if (would_block(error)) return Step::again(Wants::writable);
    return error ? Step::failed(error.value()) : Step::moved(datagram.size());
}

void Port::notify(Callback& call) {
    const Callback now = std::exchange(call, nullptr);
    if (now) now();
}

void Port::when_readable(Callback call) {
    readable_ = std::move(call);
    if (!readable_ || fetching_) return;
    if (is_held_) {
        asio::post(socket_.get_executor(), [self = shared_from_this()] { self->notify(self->readable_); });
    } else {
        fetch();
    }
}

void Port::fetch() {
    fetching_ = true;
    held_.resize(largest_datagram);
    socket_.async_receive_from(asio::buffer(held_), held_from_,
                               [self = shared_from_this()](const error_code& error, std::size_t count) {
                                   self->fetched(error, count);
                               });
}

void Port::fetched(const error_code& error, std::size_t count) {
    fetching_ = false;
    if (!socket_.is_open()) return;
    if (error && is_about_earlier(error)) {
        if (readable_) fetch();
        return;
    }
    is_held_ = !error;
    held_bytes_ = count;
    notify(readable_);  // the next step tells a failure
}

void Port::when_writable(Callback call) {
    writable_ = std::move(call);
    if (!writable_ || waits_writable_) return;
    waits_writable_ = true;
    socket_.async_wait(Udp::socket::wait_write, [self = shared_from_this()](const error_code&) {
        self->waits_writable_ = false;
        self->notify(self->writable_);
    });
}

void Port::close() noexcept {
    // They may own whoever owns this.
    const auto readable = std::exchange(readable_, nullptr);
    const auto writable = std::exchange(writable_, nullptr);
    error_code ignored;
    socket_.close(ignored);
}

std::optional<SocketAddress> Port::address() const {
    error_code error;
    const auto endpoint = socket_.local_endpoint(error);
    return error ? std::nullopt : std::optional(address_of(endpoint));
}

class AsioDatagrams final : public Datagrams {
  public:
    explicit AsioDatagrams(std::shared_ptr<Port> port) : port_(std::move(port)) {}
    ~AsioDatagrams() override { port_->close(); }

    Step receive(std::span<std::byte> into, SocketAddress& from) override {
        return port_->receive(into, from);
    }
    Step send(std::span<const std::byte> datagram, const SocketAddress& to) override {
        return port_->send(datagram, to);
    }
    void when_readable(Callback call) override { port_->when_readable(std::move(call)); }
    void when_writable(Callback call) override { port_->when_writable(std::move(call)); }
    void close() noexcept override { port_->close(); }
    [[nodiscard]] std::optional<SocketAddress> address() const override { return port_->address(); }

  private:
    std::shared_ptr<Port> port_;
};

}  // namespace

Outcome<std::unique_ptr<Datagrams>> AsioLoop::bind(const SocketAddress& at) {
    auto port = std::make_shared<Port>(*this);
    if (const error_code error = port->bind(at)) return failure_of(error);
    return std::unique_ptr<Datagrams>(std::make_unique<AsioDatagrams>(std::move(port)));
}

Outcome<std::unique_ptr<Datagrams>> AsioLoop::join(const SocketAddress& group) {
    auto port = std::make_shared<Port>(*this);
    if (const error_code error = port->join(group)) return failure_of(error);
    return std::unique_ptr<Datagrams>(std::make_unique<AsioDatagrams>(std::move(port)));
}

}  // namespace vantlow::net
