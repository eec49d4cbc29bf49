// The network as a protocol machine sees it: streams, listeners, datagrams, timers and posted work of one
// thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "base/result.h"
#include "net/stage.h"
#include "net/timer_queue.h"
#include "platform/socket.h"

namespace vantlow::net {

// For everything in this file: but for Network::post, all is called on the thread of the network, and all
// callbacks come on it. No callback comes from inside the call that asks for it. After close(), which a
// destructor implies, none comes any more; so whoever owns an object may be destroyed with it at any time,
// also by one of its callbacks. Objects end before their network. Failures are Code::transient with the
// system's number (socket_fault() tells which kind) and sentence.

/// A connection. Its read and write are those of a Stage and ignore the time; a stream that is not connected
/// yet answers `again`. Bytes that write() took are sent also when the stream is closed.
class Stream : public Stage {
  public:
    /// Calls once as soon as a read has something to say: bytes, the end, a failure. A second call replaces
    /// the first one's callback; null takes it back.
    virtual void when_readable(Callback call) = 0;
    /// The same for a write.
    virtual void when_writable(Callback call) = 0;
    /// Sends what was taken and then the end; reading goes on.
    virtual Result shut_down_sending() = 0;
    /// Ends the connection. A peer that sends more gets a reset.
    virtual void close() noexcept = 0;
    /// Ends it with a reset at once: nothing that was taken need arrive.
    virtual void reset() noexcept = 0;
    /// None unless it is connected.
    [[nodiscard]] virtual std::optional<SocketAddress> local_address() const = 0;
    /// None before it is connected; known for ever after.
    [[nodiscard]] virtual std::optional<SocketAddress> peer_address() const = 0;
    /// Its bytes go in datagrams (uTP).
    [[nodiscard]] virtual bool is_over_datagrams() const noexcept { return false; }
};

/// A listening socket. At most `backlog` connections (or what the system allows) wait to be taken; so whoever
/// has enough of them just does not accept.
class Listener {
  public:
    using Accepted = std::function<void(Outcome<std::unique_ptr<Stream>>)>;

    Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    virtual ~Listener() = default;

    /// The next connection, once. Where the system has no descriptor left, the failure comes at once, and the
    /// next accept() begins a quarter of a second later: it may be called again without thought. A second
    /// call before the answer replaces the callback.
    virtual void accept(Accepted call) = 0;
    virtual void close() noexcept = 0;
    [[nodiscard]] virtual std::optional<SocketAddress> address() const = 0;
};

/// The time that a listener rests for want of descriptors.
inline constexpr std::chrono::milliseconds accept_rest{250};

/// A bound UDP socket.
class Datagrams {
  public:
    Datagrams() = default;
    Datagrams(const Datagrams&) = delete;
    Datagrams& operator=(const Datagrams&) = delete;
    virtual ~Datagrams() = default;

    /// One datagram, cut off at the room there is; `again` when none is there. One of no bytes is `moved`
    /// with 0 bytes. That an earlier one came back as undeliverable is not told.
    virtual Step receive(std::span<std::byte> into, SocketAddress& from) = 0;
    /// Sends one datagram, or `again` where the system has no room: it may be dropped as well.
    virtual Step send(std::span<const std::byte> datagram, const SocketAddress& to) = 0;
    /// As of a Stream.
    virtual void when_readable(Callback call) = 0;
    virtual void when_writable(Callback call) = 0;
    virtual void close() noexcept = 0;
    [[nodiscard]] virtual std::optional<SocketAddress> address() const = 0;
};

/// All of it: the machine's network (loop.h) or, for tests, a simulated one.
class Network {
  public:
    using Connected = std::function<void(Result)>;

    Network() = default;
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;
    virtual ~Network() = default;

    [[nodiscard]] virtual Clock::time_point now() const = 0;
    virtual TimerQueue& timers() = 0;
    /// Begins to connect; `done` is called once. Every failure comes that way, so there always is a stream.
    /// Nothing but the system's own time-out (minutes) ends the attempt: a caller in a hurry has a timer and
    /// closes the stream.
    virtual std::unique_ptr<Stream> connect(const SocketAddress& to, Connected done) = 0;
    /// The same by every way that the network has at the same moment, instead of the best one first.
    virtual std::unique_ptr<Stream> connect_at_once(const SocketAddress& to, Connected done) {
        return connect(to, std::move(done));
    }
    /// Port 0 takes a free one, which address() tells. An IPv6 address is for IPv6 alone.
    virtual Outcome<std::unique_ptr<Listener>> listen(const SocketAddress& at, int backlog) = 0;
    virtual Outcome<std::unique_ptr<Datagrams>> bind(const SocketAddress& at) = 0;
    /// A socket at the port of a multicast group, which other programs of this machine may have as well. It
    /// receives what is sent to the group on the interface that the system chooses for it; what it sends
    /// stays in that network. Simulated networks have no groups.
    virtual Outcome<std::unique_ptr<Datagrams>> join(const SocketAddress& group) {
        static_cast<void>(group);
        return Result(Code::unsupported, "This network has no multicast groups.");
    }
    /// Has the work done on the network's thread, in the order of the calls. Any thread may call. False, and
    /// the work is not done: 65,536 works are waiting already, or the network has stopped.
    virtual bool post(Callback work) = 0;
};

/// How many posted works may wait.
inline constexpr std::size_t most_posted = 65536;

/// Calls back once when a step that answered `again` is worth repeating: from the stream, or from the timer.
void wait_for(const Step& step, Stream& stream, Timer& timer, Callback call);

}  // namespace vantlow::net
