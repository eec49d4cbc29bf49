#include "transfer/connection/tunnel_handshake.h"

#include <algorithm>
#include <limits>

#include "base/string_table.h"

namespace vantlow {
namespace {

constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

class NoLog final : public LogSink {
  public:
    void line(Direction, std::string_view) override {}
};

}  // namespace

void TunnelHandshake::begin() {
    heard_.emplace_back();
    has_ended_ = false;
    unsent_.clear();
    said_ = 0;
    waits_at_ = nowhere;
    line_until_ = 0;
}

Result TunnelHandshake::send(std::span<const std::byte> bytes) {
    const bool is_last = connection_ + 1 == heard_.size();
    if (++messages_ <= said_ || !is_last) return {};
    said_ = messages_;
    unsent_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return {};
}

Result TunnelHandshake::receive(std::span<std::byte> into, Clock::time_point until) {
    const std::string& heard = heard_[connection_];
    if (heard.size() - at_ >= into.size()) {
        std::ranges::copy(std::as_bytes(std::span(heard).subspan(at_, into.size())), into.begin());
        at_ += into.size();
        return {};
    }
    return lack(at_, into.size() - (heard.size() - at_), until);
}

Result TunnelHandshake::receive_line(std::string& line, std::size_t most, Clock::time_point until) {
    const std::string& heard = heard_[connection_];
    const std::size_t from = at_;
    const std::size_t room = std::min(most, heard.size() - from);
    const std::size_t end = std::string_view(heard).substr(from, room).find('\n');
    const std::size_t length = end == std::string_view::npos ? room : end + 1;
    line.append(heard, from, length);
    at_ += length;
    if (length == most || length > end) return {};
    Result result = lack(from, 1, until);
    if (is_short_) line_until_ = from + most;
    return result;
}

// That many bytes are missing of what begins at `from`.
Result TunnelHandshake::lack(std::size_t from, std::size_t bytes, Clock::time_point until) {
    const bool is_last = connection_ + 1 == heard_.size();
    if (!is_last || has_ended_) return {Code::transient, std::string(message_text(Message::closed))};
    if (waits_at_ != from) {
        waits_at_ = from;
        deadline_ = until;
    } else if (Clock::now() >= deadline_) {
        return {Code::transient, std::string(message_text(Message::timeout))};
    }
    is_short_ = true;
    wanted_ = bytes;
    return Code::stopped;  // which every handshake passes on at once
}

void TunnelHandshake::hear(std::string_view bytes) {
    heard_.back() += bytes;
    if (bytes.find('\n') != std::string_view::npos || heard_.back().size() >= line_until_) line_until_ = 0;
}

Clock::time_point TunnelHandshake::time_out() const {
    return from_now(time_out_);
}

// Runs the handshake over one of the connections; true where it wants another one.
bool TunnelHandshake::run(std::size_t connection, HttpLogin* login) {
    connection_ = connection;
    at_ = messages_ = 0;
    is_short_ = false;
    if (login != nullptr) login->connected(false);
    NoLog log;
    std::uint16_t port = 0;
    bool again = false;
    if (proxy_.kind == ProxyPlan::socks4) {
        result_ = open_socks4(*this, log, proxy_, target_, port);
    } else if (proxy_.kind == ProxyPlan::socks5) {
        result_ = open_socks5(*this, log, proxy_, target_, port);
    } else {
        result_ = open_connect(*this, log, proxy_, target_, login, again);
    }
    return again;
}

TunnelHandshake::State TunnelHandshake::step() {
    if (line_until_ > 0 && !has_ended_ && Clock::now() < deadline_) return State::needs_bytes;
    line_until_ = 0;
    // The login learns again what it knew at the end of each of the connections before.
    const auto login = proxy_.make_login ? proxy_.make_login() : nullptr;
    bool again = false;
    for (std::size_t connection = 0; connection < heard_.size(); ++connection)
        again = run(connection, login.get());
    if (is_short_) return State::needs_bytes;
    if (result_.ok()) return State::open;
    return again ? State::again : State::refused;
}

}  // namespace vantlow
