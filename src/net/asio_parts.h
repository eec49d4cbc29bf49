// Parts that the files over Boost.Asio in this folder share; no other file includes them.
#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstring>
#include <vector>

#include "base/mutex.h"
#include "net/loop.h"
#include "platform/descriptors.h"
#include "platform/fault_hook.h"
#include "platform/network_way.h"

namespace vantlow::net {

namespace asio = boost::asio;
using boost::system::error_code;
using Tcp = asio::ip::tcp;
using Udp = asio::ip::udp;

/// Where a completed operation is all that the system tells (I/O completion ports), whether a socket takes
/// bytes cannot be waited for without asking about every socket again and again.
#if defined(BOOST_ASIO_HAS_IOCP)
inline constexpr bool completions_only = true;
#else
inline constexpr bool completions_only = false;
#endif

inline Result failure_of(const error_code& error) {
    return {Code::transient, socket_error_text(error.value()), error.value()};
}
/// The number of the system as Asio's own, for what a FaultHook wants to fail.
inline error_code system_error_of(int number) {
    return {number, boost::system::system_category()};
}
inline bool would_block(const error_code& error) {
    return error == asio::error::would_block || error == asio::error::try_again;
}

template <class Protocol>
typename Protocol::endpoint endpoint_of(const SocketAddress& address) {
    typename Protocol::endpoint endpoint;
    std::memcpy(endpoint.data(), address.data(), address.size());
    endpoint.resize(address.size());
    return endpoint;
}
template <class Endpoint>
SocketAddress address_of(const Endpoint& endpoint) {
    return {endpoint.data(), endpoint.size()};
}

/// Makes a socket (or acceptor) of the address's kind, not blocking, for this process alone.
template <class Protocol, class Socket>
error_code open_socket(Socket& socket, const SocketAddress& kind) {
    if (kind.size() == 0) return asio::error::address_family_not_supported;
    if (const int number = ask_hook(Operation::make_socket); number != 0) return system_error_of(number);
    error_code error;
    socket.open(kind.is_ipv6() ? Protocol::v6() : Protocol::v4(), error);
    if (error) return error;
    keep_from_children(static_cast<std::intptr_t>(socket.native_handle()));
    socket.non_blocking(true, error);
    return error;
}

/// Binds it there, or to that port of the one way.
template <class Protocol, class Socket>
error_code bind_socket(Socket& socket, const SocketAddress& at, const NetworkWay& way) {
    if (const int number = ask_hook(Operation::listen); number != 0) return system_error_of(number);
    error_code error;
    if (at.is_ipv6()) socket.set_option(asio::ip::v6_only(true), error);
    if (!error && !way.is_any()) {
        const auto native = static_cast<std::intptr_t>(socket.native_handle());
        const int number = way.bind(native, at.is_ipv6(), at.port());
        return number == 0 ? error_code() : system_error_of(number);
    }
    if (!error) socket.bind(endpoint_of<Protocol>(at), error);
    return error;
}

class AsioLoop final : public Loop {
  public:
    explicit AsioLoop(const LoopOptions& options);
    ~AsioLoop() override;

    [[nodiscard]] Clock::time_point now() const override { return Clock::now(); }
    TimerQueue& timers() override { return timers_; }
    std::unique_ptr<Stream> connect(const SocketAddress& to, Connected done) override;
    Outcome<std::unique_ptr<Listener>> listen(const SocketAddress& at, int backlog) override;
    Outcome<std::unique_ptr<Datagrams>> bind(const SocketAddress& at) override;
    Outcome<std::unique_ptr<Datagrams>> join(const SocketAddress& group) override;
    bool post(Callback work) override;
    Result run() override;
    Outcome<bool> run_one(std::chrono::milliseconds at_most) override;
    void stop() noexcept override;

    [[nodiscard]] asio::io_context& context() noexcept { return context_; }
    [[nodiscard]] const NetworkWay& way() const noexcept { return way_; }
    /// Of a connection that a listener has taken.
    std::unique_ptr<Stream> stream_of(Tcp::socket socket, const SocketAddress& peer);

  private:
    void run_posted();
    void run_timers();
    void set_alarm();

    const bool keep_unsent_;
    const NetworkWay way_;
    std::atomic<bool> ended_{false};
    Mutex mutex_;
    std::vector<Callback> posted_ VANTLOW_GUARDED_BY(mutex_);
    TimerQueue timers_;
    bool in_timers_ = false;
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> guard_;
    asio::steady_timer alarm_;
};

}  // namespace vantlow::net
