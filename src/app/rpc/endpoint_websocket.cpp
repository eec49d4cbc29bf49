// One WebSocket of the endpoint: requests as messages, their answers and the notifications.
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/websocket.hpp>
#include <deque>

#include "app/rpc/endpoint_parts.h"
#include "rpc/json_rpc.h"

namespace vantlow::control {
namespace {

namespace websocket = boost::beast::websocket;

constexpr std::size_t most_requests = 8;                       ///< of one session that are not answered yet
constexpr std::size_t most_unread = std::size_t{1024} * 1024;  ///< bytes, before a notification is too many
constexpr std::size_t read_step = std::size_t{64} * 1024;

class WebSocketSession final : public Session, public std::enable_shared_from_this<WebSocketSession> {
  public:
    WebSocketSession(Shared& shared, Wire wire, const std::string& address)
        : Session(shared, address), stream_(std::move(wire)) {}

    void accept(const HttpRequest& request);
    void close() override;
    void notify(const std::shared_ptr<const std::string>& text) override;

  private:
    using Text = std::shared_ptr<const std::string>;
    struct Outgoing {
        Text text;
        bool is_answer = false;
    };
    void read();
    void take_message();
    void answer(std::optional<rpc::Run> run);
    void send(Text text, bool is_answer);
    void write();
    void end();
    void end(websocket::close_code code);

    websocket::stream<Wire> stream_;
    beast::flat_buffer buffer_;
    std::deque<Outgoing> outgoing_;
    std::size_t unsent_ = 0;      ///< bytes of outgoing_
    std::size_t unanswered_ = 0;  ///< requests
    bool reading_ = false;
    bool is_open_ = false;    ///< until then only the answer that opens it may be written
    bool has_shown_ = false;  ///< the secret, once
    bool ended_ = false;
};

void WebSocketSession::accept(const HttpRequest& request) {
    websocket::stream_base::timeout patience =
        websocket::stream_base::timeout::suggested(beast::role_type::server);
    patience.idle_timeout = shared().patience.silence;
    patience.keep_alive_pings = true;
    stream_.set_option(patience);
    stream_.read_message_max(shared().config.largest_request);
    stream_.async_accept(request, [self = shared_from_this()](const error_code& error) {
        if (error || self->ended_) return;
        self->is_open_ = true;
        self->has_shown_ = self->shared().config.rules.secret.empty();
        self->read();
    });
}

void WebSocketSession::read() {
    if (reading_ || ended_ || unanswered_ >= most_requests) return;
    reading_ = true;
    stream_.async_read_some(buffer_, read_step,
                            [self = shared_from_this()](const error_code& error, std::size_t) {
                                self->reading_ = false;
                                if (error) return self->end();
                                if (!self->hold_room(self->buffer_.size()))
                                    return self->end(websocket::close_code::try_again_later);
                                if (self->stream_.is_message_done()) self->take_message();
                                self->read();
                            });
}

void WebSocketSession::take_message() {
    rpc::Run run;
    run.request = rpc::read_json(beast::buffers_to_string(buffer_.data()));
    buffer_.clear();
    if (buffer_.capacity() > small_request) buffer_.shrink_to_fit();
    static_cast<void>(hold_room(0));
    ++unanswered_;
    hand_on(*this, std::move(run),
            [self = shared_from_this()](std::optional<rpc::Run> done) { self->answer(std::move(done)); });
}

void WebSocketSession::answer(std::optional<rpc::Run> run) {
    if (!run) return end(websocket::close_code::policy_error);
    has_shown_ = has_shown_ || run->was_proved;
    send(std::make_shared<const std::string>(rpc::write_json(run->request, std::move(run->answers)).body),
         true);
}

void WebSocketSession::notify(const Text& text) {
    if (!has_shown_ || ended_) return;
    if (unsent_ + text->size() > most_unread) return end();
    send(text, false);
}

void WebSocketSession::send(Text text, bool is_answer) {
    if (ended_) return;
    unsent_ += text->size();
    outgoing_.push_back({std::move(text), is_answer});
    if (outgoing_.size() == 1) write();
}

void WebSocketSession::write() {
    stream_.text(true);
    stream_.async_write(asio::buffer(*outgoing_.front().text),
                        [self = shared_from_this()](const error_code& error, std::size_t) {
                            if (error) return self->end();
                            const Outgoing& sent = self->outgoing_.front();
                            self->unsent_ -= sent.text->size();
                            if (sent.is_answer) --self->unanswered_;
                            self->outgoing_.pop_front();
                            if (!self->outgoing_.empty()) self->write();
                            self->read();
                        });
}

void WebSocketSession::end() {
    ended_ = true;
    beast::get_lowest_layer(stream_).close();
}

void WebSocketSession::end(websocket::close_code code) {
    if (std::exchange(ended_, true)) return;
    stream_.async_close(code, [self = shared_from_this()](const error_code&) {});
}

void WebSocketSession::close() {
    if (!is_open_) return end();
    end(websocket::close_code::going_away);
}

}  // namespace

void serve_websocket(Shared& shared, Wire wire, const std::string& address, const HttpRequest& request) {
    std::make_shared<WebSocketSession>(shared, std::move(wire), address)->accept(request);
}

}  // namespace vantlow::control
