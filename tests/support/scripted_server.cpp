#include "support/scripted_server.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "base/text.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t longest_request = 1U << 20U;

Outcome<TcpListener> listen_at(bool ipv6, std::uint16_t port) {
    static const bool started = start_sockets();
    if (!started) return Code::transient;
    return TcpListener::listen(*SocketAddress::from_literal(ipv6 ? "::1" : "127.0.0.1", port), 1024);
}

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

void parse_range(RequestHead& head) {
    const auto range = head.field("Range");
    if (!range || !istarts_with(*range, "bytes=")) return;
    const std::string_view numbers = std::string_view(*range).substr(6);
    const auto dash = numbers.find('-');
    if (dash == std::string_view::npos) return;
    head.range_first = parse_decimal(numbers.substr(0, dash));
    head.range_last = parse_decimal(numbers.substr(dash + 1));
}

RequestHead parse_request(std::string raw) {
    RequestHead head;
    head.raw = std::move(raw);
    const auto lines = head.lines();
    if (lines.empty()) return head;
    const auto words = split(lines.front(), ' ');
    head.method = words[0];
    if (words.size() > 1) head.target = words[1];
    if (words.size() > 2) head.version = words[2];
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::string_view line = lines[i];
        const auto colon = std::min(line.find(':'), line.size());
        head.headers.emplace_back(line.substr(0, colon), trim(line.substr(std::min(colon + 1, line.size()))));
    }
    parse_range(head);
    return head;
}

}  // namespace

std::optional<std::string> RequestHead::field(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (iequals(key, name)) return value;
    }
    return std::nullopt;
}

std::vector<std::string> RequestHead::lines() const {
    std::vector<std::string> found;
    std::string_view rest = raw;
    for (auto end = rest.find("\r\n"); end != 0 && end != std::string_view::npos; end = rest.find("\r\n")) {
        found.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end + 2);
    }
    return found;
}

// ---- Exchange ----

bool Exchange::read_some(milliseconds at_most) {
    if (!is_open() || no_input_) return false;
    if (wait_socket(socket_, Interest::read, at_most, *server_.stop_) != Ready::yes) return false;
    std::array<std::byte, 16384> buffer;
    const IoStep step = socket_.read(buffer);
    if (step.state == IoStep::State::would_block) return true;
    if (step.state == IoStep::State::closed) no_input_ = true;
    if (step.state == IoStep::State::failed) no_input_ = gone_ = true;
    if (step.state != IoStep::State::moved) return false;
    received_.append(reinterpret_cast<const char*>(buffer.data()), step.bytes);
    return true;
}

bool Exchange::read_request() {
    std::size_t end = std::string::npos;
    while ((end = received_.find("\r\n\r\n")) == std::string::npos) {
        if (received_.size() > longest_request || !read_some(milliseconds(-1))) return false;
    }
    head_ = parse_request(received_.substr(0, end + 4));
    received_.erase(0, end + 4);
    ++number_;
    server_.begin_request(*this);
    return true;
}

bool Exchange::receive(std::size_t bytes, std::string& into) {
    while (received_.size() < bytes) {
        if (!read_some(milliseconds(-1))) return false;
    }
    into = received_.substr(0, bytes);
    received_.erase(0, bytes);
    return true;
}

bool Exchange::peer_closed() {
    while (read_some(milliseconds(0))) {
    }
    return no_input_ || !is_open();
}

bool Exchange::transmit(std::string_view bytes, bool counts) {
    while (!bytes.empty() && is_open() && !server_.stop_->requested()) {
        const IoStep step = socket_.write(bytes_of(bytes));
        if (step.state == IoStep::State::moved) {
            if (counts) server_.count_body(step.bytes);
            bytes.remove_prefix(step.bytes);
        } else if (step.state == IoStep::State::would_block) {
            if (wait_socket(socket_, Interest::write, milliseconds(-1), *server_.stop_) != Ready::yes)
                return false;
        } else {
            gone_ = true;
        }
    }
    return bytes.empty() && is_open();
}

bool Exchange::send(std::string_view bytes) {
    return transmit(bytes, true);
}
bool Exchange::send_raw(std::string_view bytes) {
    return transmit(bytes, false);
}

bool Exchange::send_head(int status, std::string_view reason, const Headers& headers,
                         std::string_view version) {
    std::string head =
        std::string(version) + " " + std::to_string(status) + " " + std::string(reason) + "\r\n";
    for (const auto& [name, value] : headers) head += name + ": " + value + "\r\n";
    return send_raw(head + "\r\n");
}

bool Exchange::answer(int status, std::string_view reason, std::string_view body, Headers headers) {
    headers.emplace_back("Content-Length", std::to_string(body.size()));
    return send_head(status, reason, headers) && send(body);
}

bool Exchange::send_slowly(std::string_view bytes, std::size_t bytes_per_step, milliseconds pause) {
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, bytes_per_step);
        bytes.remove_prefix(piece.size());
        if (!send(piece) || !stall(pause)) return false;
    }
    return is_open();
}

bool Exchange::send_paced(std::string_view bytes, std::int64_t rate) {
    using std::chrono::microseconds;
    // Slices of a fiftieth of a second, each at its moment: a late one is made up for by the next.
    const auto slice = static_cast<std::size_t>(std::max<std::int64_t>(rate / 50, 1));
    const auto begin = Clock::now();
    std::int64_t sent = 0;
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, slice);
        bytes.remove_prefix(piece.size());
        if (!send(piece)) return false;
        sent += static_cast<std::int64_t>(piece.size());
        const auto due = begin + microseconds(sent * 1000000 / rate);
        const auto wait = std::chrono::ceil<milliseconds>(due - Clock::now());
        if (wait.count() > 0 && !stall(wait)) return false;
    }
    return is_open();
}

bool Exchange::stall(milliseconds time) {
    const auto end = Clock::now() + time;
    while (is_open() && !no_input_) {
        const auto left = time.count() < 0 ? time : std::chrono::ceil<milliseconds>(end - Clock::now());
        if (time.count() >= 0 && left.count() <= 0) return !server_.stop_->requested();
        if (!read_some(left) && server_.stop_->requested()) return false;
    }
    // The peer sends no more, but may still read: only the time and a stop end the pause then.
    if (time.count() < 0 || gone_ || !is_open()) return false;
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    return left.count() <= 0 || !server_.stop_->wait_for(left);
}

void Exchange::reset() noexcept {
    socket_.close_with_reset();
    gone_ = true;
}

void Exchange::close() noexcept {
    // What is left unread would make the system answer with a reset.
    std::array<std::byte, 4096> rest;
    while (socket_.is_open() && socket_.read(rest).state == IoStep::State::moved) {
    }
    socket_.close();
    gone_ = true;
}

// ---- ScriptedServer ----

ScriptedServer::ScriptedServer(Handler handler, Options options)
    : options_(options), handler_(std::move(handler)), stop_(std::make_unique<StopSource>()) {
    auto listener = listen_at(options_.ipv6, options_.port);
    if (!listener) throw std::runtime_error("cannot listen: " + listener.failure().message());
    listener_ = *std::move(listener);
    port_ = listener_.address().value_or(SocketAddress()).port();
    acceptor_ = std::thread([this] { accept_all(); });
}

ScriptedServer::~ScriptedServer() {
    stop();
}

void ScriptedServer::stop() {
    if (!acceptor_.joinable()) return;
    stop_->request();
    acceptor_.join();
    for (Worker& worker : workers_) worker.thread.join();
    workers_.clear();
    listener_.close();
}

void ScriptedServer::accept_all() {
    while (!stop_->requested()) {
        auto socket = listener_.accept(milliseconds(-1), *stop_);
        if (!socket) {
            // Out of descriptors, for example: not for the server to decide.
            if (stop_->wait_for(milliseconds(5))) return;
            continue;
        }
        reap();
        int number = 0;
        {
            const std::lock_guard guard(mutex_);
            number = static_cast<int>(++connections_);
            most_open_ = std::max(most_open_, ++open_);
            changed_.notify_all();
        }
        Worker& worker = workers_.emplace_back();
        worker.thread = std::thread([this, &worker, number, taken = *std::move(socket)]() mutable {
            serve(std::move(taken), number);
            worker.done = true;
        });
    }
}

void ScriptedServer::reap() {
    workers_.remove_if([](Worker& worker) {
        if (!worker.done) return false;
        worker.thread.join();
        return true;
    });
}

void ScriptedServer::serve(TcpSocket socket, int number) {
    {
        Exchange exchange(*this, socket, number);
        if (options_.raw) handler()(exchange);
        while (!options_.raw && exchange.is_open() && exchange.read_request()) handler()(exchange);
        exchange.close();
    }
    const std::lock_guard guard(mutex_);
    --open_;
    changed_.notify_all();
}

void ScriptedServer::begin_request(const Exchange& exchange) {
    const std::lock_guard guard(mutex_);
    requests_.push_back({exchange.connection_, exchange.number_, Clock::now(), exchange.head_});
    changed_.notify_all();
}

void ScriptedServer::count_body(std::size_t bytes) {
    const std::lock_guard guard(mutex_);
    body_sent_ += static_cast<std::int64_t>(bytes);
}

ScriptedServer::Handler ScriptedServer::handler() const {
    const std::lock_guard guard(mutex_);
    return handler_;
}

void ScriptedServer::set_handler(Handler handler) {
    const std::lock_guard guard(mutex_);
    handler_ = std::move(handler);
}

std::string ScriptedServer::url(std::string_view path) const {
    return "http://" + host() + ":" + std::to_string(port_) + std::string(path);
}

std::u16string ScriptedServer::url16(std::string_view path) const {
    return to_utf16(url(path));
}

std::size_t ScriptedServer::connection_count() const {
    const std::lock_guard guard(mutex_);
    return connections_;
}

std::vector<RequestRecord> ScriptedServer::requests() const {
    const std::lock_guard guard(mutex_);
    return requests_;
}

std::int64_t ScriptedServer::body_sent() const {
    const std::lock_guard guard(mutex_);
    return body_sent_;
}

int ScriptedServer::most_open_connections() const {
    const std::lock_guard guard(mutex_);
    return most_open_;
}

template <class Test>
bool ScriptedServer::wait_until(milliseconds at_most, Test test) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, at_most, test);
}

bool ScriptedServer::wait_for_requests(std::size_t count, milliseconds at_most) const {
    return wait_until(at_most, [&] { return requests_.size() >= count; });
}

bool ScriptedServer::wait_for_connections(std::size_t count, milliseconds at_most) const {
    return wait_until(at_most, [&] { return connections_ >= count; });
}

std::uint16_t closed_port() {
    auto listener = listen_at(false, 0);
    if (!listener) throw std::runtime_error("cannot listen: " + listener.failure().message());
    return listener->address().value_or(SocketAddress()).port();
}

bool accepts(std::uint16_t port, const std::string& host) {
    const StopSource never;
    auto socket = TcpSocket::begin_connect(*SocketAddress::from_literal(host, port));
    return socket &&
           wait_socket(*socket, Interest::write, std::chrono::milliseconds(1000), never) == Ready::yes &&
           socket->connect_error() == 0;
}

}  // namespace vantlow::test
