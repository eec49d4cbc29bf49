// A server that does what a test tells it to: well-behaved or not.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/socket.h"
#include "platform/stop.h"

namespace vantlow::test {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// A request as it came.
struct RequestHead {
    std::string raw;  ///< every byte, the empty line included
    std::string method;
    std::string target;  ///< the path with its query, or the absolute form
    std::string version;
    Headers headers;                          ///< names as sent
    std::optional<std::int64_t> range_first;  ///< of "Range: bytes=first-last"
    std::optional<std::int64_t> range_last;

    /// The first field of that name, in any letter case; none when there is none.
    [[nodiscard]] std::optional<std::string> field(std::string_view name) const;
    /// The lines without their ends, the empty one not included.
    [[nodiscard]] std::vector<std::string> lines() const;
};

/// What the server remembers of one request.
struct RequestRecord {
    int connection = 0;  ///< from 1, in the order of accepting
    int number = 0;      ///< from 1, on its connection
    Clock::time_point time;
    RequestHead head;
};

class ScriptedServer;

/// One request and the ways to answer it. Belongs to the connection's thread. Every action is false, and does
/// nothing more, once the peer is gone or the server stops.
class Exchange {
  public:
    /// Which connection (from 1) and which request on it (from 1; 0: just accepted, nothing was read).
    [[nodiscard]] int connection() const noexcept { return connection_; }
    [[nodiscard]] int number() const noexcept { return number_; }
    [[nodiscard]] const RequestHead& request() const noexcept { return head_; }
    [[nodiscard]] bool is_open() const noexcept { return socket_.is_open() && !gone_; }
    /// Whether the peer closed and sends nothing more.
    [[nodiscard]] bool peer_closed();

    /// "HTTP/1.1 status reason", the fields and the empty line.
    bool send_head(int status, std::string_view reason, const Headers& headers = {},
                   std::string_view version = "HTTP/1.1");
    /// A head with "Content-Length" and the body.
    bool answer(int status, std::string_view reason, std::string_view body = {}, Headers headers = {});
    /// Bytes that count as a body.
    bool send(std::string_view bytes);
    /// Bytes that do not: a hand-made header.
    bool send_raw(std::string_view bytes);
    /// Bytes in steps with a pause behind each.
    bool send_slowly(std::string_view bytes, std::size_t bytes_per_step, std::chrono::milliseconds pause);
    /// Bytes at a pace, in bytes a second.
    bool send_paced(std::string_view bytes, std::int64_t rate);
    /// Does nothing for that long (negative: until the server stops or the peer closes). False when it was
    /// cut short.
    bool stall(std::chrono::milliseconds time = std::chrono::milliseconds(-1));
    /// Reads at least that many bytes more of the request, for what is not a header.
    bool receive(std::size_t bytes, std::string& into);

    /// Breaks the connection so that the peer sees a reset at once.
    void reset() noexcept;
    /// Ends the connection in an orderly way, also behind half an answer.
    void close() noexcept;

  private:
    friend class ScriptedServer;
    Exchange(ScriptedServer& server, TcpSocket& socket, int connection)
        : server_(server), socket_(socket), connection_(connection) {}
    bool transmit(std::string_view bytes, bool counts);
    bool read_some(std::chrono::milliseconds at_most);
    bool read_request();

    ScriptedServer& server_;
    TcpSocket& socket_;
    int connection_;
    int number_ = 0;
    bool gone_ = false;      ///< nothing more can be sent
    bool no_input_ = false;  ///< nothing more will come
    RequestHead head_;
    std::string received_;  ///< not yet part of a request
};

/// Serves on a free port of the loopback address with a thread for each connection. Stopped and joined at the
/// end, within a fifth of a second unless a handler sleeps by its own means.
class ScriptedServer {
  public:
    /// Called for each request, on the connection's thread. The connection stays open for the next request
    /// unless the handler ended it.
    using Handler = std::function<void(Exchange&)>;
    struct Options {
        bool ipv6 = false;       ///< "::1" instead of "127.0.0.1"
        std::uint16_t port = 0;  ///< 0: a free one
        bool raw = false;        ///< one call of the handler for each connection, before anything is read
    };

    explicit ScriptedServer(Handler handler) : ScriptedServer(std::move(handler), Options{}) {}
    /// Throws std::runtime_error when it cannot listen.
    ScriptedServer(Handler handler, Options options);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    /// "127.0.0.1" or "[::1]".
    [[nodiscard]] std::string host() const { return options_.ipv6 ? "[::1]" : "127.0.0.1"; }
    /// The address of a path, which begins with a slash.
    [[nodiscard]] std::string url(std::string_view path) const;
    [[nodiscard]] std::u16string url16(std::string_view path) const;

    /// Another handler for the requests from now on.
    void set_handler(Handler handler);
    /// Ends everything: connections are closed, later ones refused.
    void stop();

    [[nodiscard]] std::vector<RequestRecord> requests() const;
    [[nodiscard]] std::size_t connection_count() const;
    [[nodiscard]] std::size_t request_count() const { return requests().size(); }
    [[nodiscard]] std::int64_t body_sent() const;
    /// The most connections that were open at once.
    [[nodiscard]] int most_open_connections() const;
    bool wait_for_requests(std::size_t count,
                           std::chrono::milliseconds at_most = std::chrono::seconds(10)) const;
    bool wait_for_connections(std::size_t count,
                              std::chrono::milliseconds at_most = std::chrono::seconds(10)) const;

  private:
    friend class Exchange;
    struct Worker {
        std::atomic<bool> done{false};
        std::thread thread;
    };
    void accept_all();
    void serve(TcpSocket socket, int number);
    void reap();
    void begin_request(const Exchange& exchange);
    void count_body(std::size_t bytes);
    Handler handler() const;
    template <class Test>
    bool wait_until(std::chrono::milliseconds at_most, Test test) const;

    Options options_;
    std::uint16_t port_ = 0;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Handler handler_;  ///< this and what follows up to open_: guarded by mutex_
    std::size_t connections_ = 0;
    std::vector<RequestRecord> requests_;
    std::int64_t body_sent_ = 0;
    int open_ = 0;
    int most_open_ = 0;
    std::unique_ptr<StopSource> stop_;
    TcpListener listener_;
    std::list<Worker> workers_;  ///< the accepting thread's, after its end stop()'s
    std::thread acceptor_;
};

/// A port at which nobody listens.
std::uint16_t closed_port();
/// Whether somebody listens there, a server program that was just started; tried for a second at most.
bool accepts(std::uint16_t port, const std::string& host = "127.0.0.1");

}  // namespace vantlow::test
